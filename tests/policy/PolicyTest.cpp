#include "sandbox/Calls.h"
#include "sandbox/Processes.h"
#include "src/link/Owners.h"
#include "support/BusTest.h"
#include "support/Wait.h"
#include "tools/sandbox/Connection.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <ostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

using namespace kiv::test;
using kiv::sandbox::Connection;
using kiv::sandbox::Ping;
using kiv::sandbox::ReadFile;
using kiv::sandbox::RequestName;
using ::testing::ElementsAre;

namespace {

namespace fs = std::filesystem;

const std::string kClientName = "org.lumra.tv.networkspeaker.client.tv_1";
const std::string kOtherName = "org.lumra.tv.policytest.other";

const std::string kPassed;
const std::string kDenied = "org.freedesktop.DBus.Error.AccessDenied";
// A connection that serves no object answers with this error when the call has arrived.
const std::string kArrived = "org.freedesktop.DBus.Error.UnknownMethod";

// The rules for all users that come with the system bus, then those of other services, including the simulator's
// control.
constexpr auto kSystemBus = R"(
  <policy context="default">
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus"/>
  </policy>
  <policy context="default">
    <allow own_prefix="org.lumra.tv.policytest"/>
    <allow send_destination_prefix="org.lumra.tv.policytest"/>
    <allow own="org.lumra.tv.networkspeaker.simulator"/>
    <allow send_destination="org.lumra.tv.networkspeaker.simulator"/>
  </policy>)";

// The user and the group that a policy names.
struct Named {
    std::string serverUser;
    std::string clientGroup; // empty for none
};

std::string Replaced(std::string text, const std::string& placeholder, const std::string& value)
{
    const std::size_t at = text.find(placeholder);
    if (at == std::string::npos) {
        throw std::runtime_error("no " + placeholder + " in the policy");
    }
    return text.replace(at, placeholder.size(), value);
}

// Returns the policy, filled in as the build does.
std::string Policy(const Named& named)
{
    const std::string clients =
        named.clientGroup.empty() ? "context=\"default\"" : "group=\"" + named.clientGroup + "\"";
    const std::string policy = Replaced(ReadFile(KIV_POLICY_TEMPLATE), "@KIV_CLIENTS@", clients);
    return Replaced(policy, "@KIV_SERVER_USER@", named.serverUser);
}

bool IsRoot()
{
    return geteuid() == 0;
}

std::string OwnUser()
{
    const passwd* user = getpwuid(geteuid());
    return user != nullptr ? user->pw_name : throw std::runtime_error("the test's user has no name");
}

std::string OwnGroup()
{
    const group* own = getgrgid(getegid());
    return own != nullptr ? own->gr_name : throw std::runtime_error("the test's group has no name");
}

std::vector<gid_t> OwnGroups()
{
    std::vector<gid_t> groups(static_cast<std::size_t>(getgroups(0, nullptr)));
    getgroups(static_cast<int>(groups.size()), groups.data());
    groups.push_back(getegid());
    return groups;
}

// Returns a group of this system that this process is not a member of.
std::string ForeignGroup()
{
    const std::vector<gid_t> own = OwnGroups();
    setgrent();
    const group* one = getgrent();
    while (one != nullptr && std::ranges::find(own, one->gr_gid) != own.end()) {
        one = getgrent();
    }
    const std::string name = one != nullptr ? one->gr_name : throw std::runtime_error("a member of every group");
    endgrent();
    return name;
}

void Require(int result, const char* what)
{
    if (result != 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

// Makes root's process run as the user nobody while the object lives.
class Nobody {
public:
    Nobody()
    {
        const passwd* nobody = getpwnam("nobody");
        if (nobody == nullptr) {
            throw std::runtime_error("no user nobody");
        }
        Require(setgroups(1, &nobody->pw_gid), "setgroups");
        Require(setegid(nobody->pw_gid), "setegid");
        Require(seteuid(nobody->pw_uid), "seteuid");
    }
    ~Nobody()
    {
        Require(seteuid(0), "seteuid");
        Require(setegid(group_), "setegid");
        Require(setgroups(groups_.size(), groups_.data()), "setgroups");
    }
    Nobody(const Nobody&) = delete;
    Nobody& operator=(const Nobody&) = delete;

private:
    const gid_t group_ = getegid();
    const std::vector<gid_t> groups_ = OwnGroups();
};

// A file with the policy, for the bus to read.
class PolicyFile {
public:
    explicit PolicyFile(const std::string& policy) { Write(policy); }

    void Write(const std::string& policy) const
    {
        std::ofstream file(path_);
        file << policy;
        if (!file.flush()) {
            throw std::runtime_error("cannot write " + path_.string());
        }
    }
    std::string Include() const { return "<include>" + path_.string() + "</include>"; }

private:
    const kiv::sandbox::ScratchDirectory scratch_;
    const fs::path path_ = scratch_.Path() / "org.lumra.tv.networkspeaker.conf";
};

// A bus with rules of its own, followed by the policy. The user of the test is the server's user, and a member of the
// clients' group if there is one.
class PolicyBusTest : public BusTest {
protected:
    explicit PolicyBusTest(const std::string& rules)
        : PolicyBusTest(rules, std::make_unique<PolicyFile>(Policy({OwnUser(), ""})))
    {
    }

    void Load(const std::string& policy)
    {
        file_->Write(policy);
        bus_.ReloadConfig();
    }
    void NameUs() { Load(Policy({OwnUser(), restricted_ ? OwnGroup() : ""})); }

    void RestrictClients()
    {
        restricted_ = true;
        NameUs();
    }

    // Connects as a user that the policy does not name. Root uses the user nobody for that. For other users, the policy
    // names another user until NameUs().
    Connection Stranger()
    {
        if (IsRoot()) {
            const Nobody nobody;
            return Connection(bus_.Address());
        }
        Load(Policy({"root", restricted_ ? ForeignGroup() : ""}));
        return Connection(bus_.Address());
    }

    Connection us_{bus_.Address()};

private:
    PolicyBusTest(const std::string& rules, std::unique_ptr<PolicyFile> file)
        : BusTest({.extraConfig = rules + file->Include()}), file_(std::move(file))
    {
        if (IsRoot()) {
            fs::permissions(bus_.Directory(), fs::perms::others_exec, fs::perm_options::add);
        }
    }

    const std::unique_ptr<PolicyFile> file_;
    bool restricted_ = false;
};

struct Bus {
    const char* name;
    std::string rules;

    friend void PrintTo(const Bus& bus, std::ostream* out) { *out << bus.name; }
};

class PolicyTest : public PolicyBusTest, public ::testing::WithParamInterface<Bus> {
protected:
    PolicyTest() : PolicyBusTest(GetParam().rules) {}
};

INSTANTIATE_TEST_SUITE_P(
    On, PolicyTest, ::testing::Values(Bus{"ASystemBus", kSystemBus}, Bus{"ABusThatAllowsEverything", ""}), NameOf());

GDBusMessage* Event(const std::string& destination, const char* interface, const std::string& path)
{
    GDBusMessage* call =
        g_dbus_message_new_method_call(destination.c_str(), path.c_str(), interface, "nam_notify_subscriber");
    const std::vector<unsigned char> payload = Payload(7, 0, {});
    GVariant* bytes = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, payload.data(), payload.size(), 1);
    g_dbus_message_set_body(call, g_variant_new("(@ay)", bytes));
    return call;
}

// Sends and releases the call. Returns the error's name, or an empty text for an answer.
std::string Send(const Connection& from, GDBusMessage* call)
{
    kiv::link::ErrorOwner failure;
    const kiv::link::MessageOwner sent(call);
    const kiv::link::MessageOwner reply(g_dbus_connection_send_message_with_reply_sync(
        from.Get(), sent.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, G_MAXINT, nullptr, nullptr, failure.Out()));
    if (reply == nullptr) {
        throw std::runtime_error(failure->message);
    }
    const char* error = g_dbus_message_get_error_name(reply.get());
    return error != nullptr ? error : "";
}

std::string SendEvent(const Connection& from, const std::string& destination, const char* interface = "org.example.Any")
{
    return Send(from, Event(destination, interface, "/any"));
}

std::string CallServer(const Connection& from, const std::string& destination = kServerName)
{
    return Send(
        from, g_dbus_message_new_method_call(
                  destination.c_str(), "/org/lumra/tv/networkspeaker/server",
                  "org.lumra.tv.networkspeaker.server.interface", "StopNetworkSpeaker"));
}

TEST_P(PolicyTest, TheServersNameIsForItsUserAlone)
{
    const Connection stranger = Stranger();
    EXPECT_EQ(RequestName(stranger, kServerName), kDenied);

    NameUs();
    EXPECT_EQ(RequestName(us_, kServerName), kPassed);
}

TEST_P(PolicyTest, EventsAreTakenFromTheServersUserAlone)
{
    const Connection client(bus_.Address());
    ASSERT_EQ(RequestName(client, kClientName), kPassed);

    EXPECT_EQ(SendEvent(us_, kClientName), kArrived);
    EXPECT_EQ(SendEvent(us_, client.UniqueName()), kArrived);

    const Connection stranger = Stranger();
    EXPECT_EQ(SendEvent(stranger, kClientName), kDenied);
    EXPECT_EQ(SendEvent(stranger, client.UniqueName()), kDenied);
    EXPECT_EQ(SendEvent(stranger, kClientName, nullptr), kDenied);
}

TEST_P(PolicyTest, AClientWithoutItsNameIsGuardedToo)
{
    const Connection client(bus_.Address());
    const Connection stranger = Stranger();

    EXPECT_EQ(SendEvent(stranger, client.UniqueName()), kDenied);
}

TEST_P(PolicyTest, EveryUserMayBeAClient)
{
    ASSERT_EQ(RequestName(us_, kServerName), kPassed);
    const Connection stranger = Stranger();

    EXPECT_EQ(RequestName(stranger, kClientName), kPassed);
    EXPECT_EQ(CallServer(stranger), kArrived);
}

TEST_P(PolicyTest, WithAGroupItsMembersAloneAreClients)
{
    RestrictClients();
    ASSERT_EQ(RequestName(us_, kServerName), kPassed);
    EXPECT_EQ(RequestName(us_, kClientName), kPassed);
    EXPECT_EQ(CallServer(us_), kArrived);

    const Connection stranger = Stranger();
    EXPECT_EQ(RequestName(stranger, kClientName + "2"), kDenied);
    EXPECT_EQ(CallServer(stranger), kDenied);
    EXPECT_EQ(CallServer(stranger, us_.UniqueName()), kDenied);
}

TEST_P(PolicyTest, ANameThatNobodyHasOpensNothing)
{
    Load(Policy({"no-such-user", "no-such-group"}));

    EXPECT_EQ(RequestName(us_, kServerName), kDenied);
    EXPECT_EQ(RequestName(us_, kClientName), kDenied);
    EXPECT_EQ(SendEvent(us_, us_.UniqueName()), kDenied);
}

TEST_P(PolicyTest, NamesThatBeginAlikeAreNotMeant)
{
    RestrictClients();
    const Connection stranger = Stranger();

    EXPECT_EQ(
        RequestName(stranger, "org.lumra.tv.networkspeaker.clientele"),
        GetParam().rules.empty() ? kPassed : kDenied); // as the rules of the bus say
}

// Counts a connection's signals.
class Signals {
public:
    explicit Signals(const Connection& receiver) : receiver_(receiver)
    {
        g_main_context_push_thread_default(receiver.Context());
        const auto onSignal = [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
                                 gpointer count) { ++*static_cast<int*>(count); };
        subscription_ = g_dbus_connection_signal_subscribe(
            receiver.Get(), nullptr, "org.example.Any", "Happened", nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
            onSignal, &count_, nullptr);
        g_main_context_pop_thread_default(receiver.Context());
    }
    ~Signals() { g_dbus_connection_signal_unsubscribe(receiver_.Get(), subscription_); }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    int Count()
    {
        while (g_main_context_iteration(receiver_.Context(), FALSE) != FALSE) {
        }
        return count_;
    }

private:
    const Connection& receiver_;
    guint subscription_;
    int count_ = 0;
};

void EmitSignal(const Connection& from, const char* destination)
{
    g_dbus_connection_emit_signal(from.Get(), destination, "/any", "org.example.Any", "Happened", nullptr, nullptr);
    g_dbus_connection_flush_sync(from.Get(), nullptr, nullptr);
}

TEST_P(PolicyTest, OtherServicesAnswerAndInformClientAndServer)
{
    RestrictClients();
    ASSERT_EQ(RequestName(us_, kServerName), kPassed);
    ASSERT_EQ(RequestName(us_, kClientName), kPassed);
    Signals signals(us_);
    const Connection stranger = Stranger();
    ASSERT_EQ(RequestName(stranger, kOtherName), kPassed);

    EXPECT_EQ(Ping(us_, kOtherName), kPassed);
    EmitSignal(stranger, nullptr);
    EmitSignal(stranger, us_.UniqueName().c_str());
    // The answer arrives after the signals.
    EXPECT_EQ(Ping(us_, kOtherName), kPassed);
    EXPECT_EQ(signals.Count(), 2);
}

TEST_P(PolicyTest, OtherServicesOfAClientsProcessStayReachable)
{
    RestrictClients();
    ASSERT_EQ(RequestName(us_, kClientName), kPassed);
    ASSERT_EQ(RequestName(us_, kOtherName), kPassed);
    const Connection stranger = Stranger();

    EXPECT_EQ(Ping(stranger, kOtherName), kPassed);
    EXPECT_EQ(SendEvent(stranger, kOtherName), kDenied);
}

TEST_P(PolicyTest, TheFileAsItIsInstalled)
{
    Load(ReadFile(KIV_POLICY));

    const bool isServersUser = OwnUser() == KIV_SERVER_USER;
    EXPECT_EQ(RequestName(us_, kServerName), isServersUser ? kPassed : kDenied);
    EXPECT_EQ(SendEvent(us_, us_.UniqueName()), isServersUser ? kArrived : kDenied);
    if (IsRoot()) {
        const Connection nobody = Stranger();
        EXPECT_EQ(RequestName(nobody, kServerName), kDenied);
        EXPECT_EQ(SendEvent(nobody, us_.UniqueName()), kDenied);
    }
}

TEST(PolicyFileTest, NamesWhomTheBuildWasTold)
{
    EXPECT_EQ(ReadFile(KIV_POLICY), Policy({KIV_SERVER_USER, KIV_CLIENT_GROUP}));
}

// --- The library behind the policy ---

// The lengths of the events that the host has received, by which the test tells them apart.
class Received {
public:
    static void Add(int /*eventId*/, void* /*data*/, int length)
    {
        const std::lock_guard lock(mutex_);
        lengths_.push_back(length);
        changed_.notify_all();
    }
    static std::vector<int> WaitUntil(int last)
    {
        std::unique_lock lock(mutex_);
        kiv::test::WaitUntil("the event of length " + std::to_string(last), changed_, lock, [&] {
            return !lengths_.empty() && lengths_.back() == last;
        });
        return lengths_;
    }

private:
    inline static std::mutex mutex_;
    inline static std::condition_variable changed_;
    inline static std::vector<int> lengths_;
};

GDBusMessage* EventFor(const std::string& destination, const std::string& clientId)
{
    const std::string interface = "org.lumra.tv.networkspeaker.client.interface." + clientId;
    return Event(destination, interface.c_str(), "/org/lumra/tv/networkspeaker/client/" + clientId);
}

// Sends a call, and returns when the bus has handled it.
void SendWithoutReply(const Connection& from, GDBusMessage* call)
{
    const kiv::link::MessageOwner sent(call);
    g_dbus_message_set_flags(sent.get(), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    g_dbus_connection_send_message(from.Get(), sent.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    Ping(from, "org.freedesktop.DBus");
}

class GuardedHostTest : public PolicyBusTest {
protected:
    GuardedHostTest() : PolicyBusTest(kSystemBus)
    {
        StartAndConnect();
        EXPECT_EQ(SubscribeNamServiceCallback("host", Received::Add), 1);
    }

    std::string HostsUniqueName() { return g_dbus_connection_get_unique_name(client_.m_pConnection); }
};

TEST_F(GuardedHostTest, IsServedAndToldEventsByTheServer)
{
    EXPECT_EQ(StopNetworkSpeaker(3), 3);
    control_.SendEvent(7, {1, 2, 3});

    EXPECT_THAT(Received::WaitUntil(3), ElementsAre(3));
}

TEST_F(GuardedHostTest, IsToldNothingByAnotherUser)
{
    const std::string host = HostsUniqueName();
    const Connection stranger = Stranger();

    for (const std::string& destination : {ClientBusName(), host}) {
        EXPECT_EQ(Send(stranger, EventFor(destination, ClientId())), kDenied);
        SendWithoutReply(stranger, EventFor(destination, ClientId()));
    }

    NameUs();
    control_.SendEvent(7, {1});
    EXPECT_THAT(Received::WaitUntil(1), ElementsAre(1));
}

TEST_F(GuardedHostTest, AnswersNoOtherCallsEither)
{
    const std::string host = HostsUniqueName();
    const Connection stranger = Stranger();

    for (const std::string& destination : {ClientBusName(), host}) {
        GDBusMessage* unserved = EventFor(destination, ClientId());
        g_dbus_message_set_member(unserved, "test_nam_notify_subscriber_1");
        EXPECT_EQ(Send(stranger, unserved), kDenied);
        EXPECT_EQ(Ping(stranger, destination), kDenied);
    }
}

TEST_F(GuardedHostTest, KeepsItsNameAgainstOneWhoWantsToReplaceIt)
{
    const Connection stranger = Stranger();

    constexpr guint kReplaceAndDoNotQueue = 2 | 4;
    const kiv::link::VariantOwner reply(g_dbus_connection_call_sync(
        stranger.Get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", ClientBusName().c_str(), kReplaceAndDoNotQueue), nullptr, G_DBUS_CALL_FLAGS_NONE,
        G_MAXINT, nullptr, nullptr));

    ASSERT_NE(reply.get(), nullptr);
    constexpr guint kIsOwnedAlready = 3;
    guint answer = 0;
    g_variant_get(reply.get(), "(u)", &answer);
    EXPECT_EQ(answer, kIsOwnedAlready);
}

class UnguardedHostTest : public BusTest {};

TEST_F(UnguardedHostTest, TakesAnEventFromWhoeverSendsIt)
{
    StartAndConnect();
    ASSERT_EQ(SubscribeNamServiceCallback("host", Received::Add), 1);
    const Connection anybody(bus_.Address());

    EXPECT_EQ(Send(anybody, EventFor(ClientBusName(), ClientId())), kPassed);

    EXPECT_THAT(Received::WaitUntil(0), ElementsAre(0));
}

} // namespace
