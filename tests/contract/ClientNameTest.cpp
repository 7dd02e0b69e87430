#include "contract/EventTest.h"
#include "src/link/Owners.h"
#include "support/Wait.h"
#include "tools/sandbox/Connection.h"

#include <memory>
#include <set>

using namespace kiv::test;

// Compares the messages by which the library requests and releases its name with those of GIO's name owner. The traces
// must be the same, message by message, on the same bus.
namespace client_name_test {
namespace {

using kiv::sandbox::Message;

constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kPlainName = "org.example.Plain";

const std::string kDenyPlain = "<policy context=\"mandatory\"><deny own=\"org.example.Plain\"/>"
                               "<deny own_prefix=\"org.lumra.tv.networkspeaker.client\"/></policy>";

std::string Replace(std::string text, const std::string& what, const std::string& with)
{
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
        text.replace(at, what.size(), with);
    }
    return text;
}

class ClientNameTest : public EventTest {
protected:
    explicit ClientNameTest(const kiv::sandbox::BusOptions& options = {}) : EventTest(options) { StartServer(); }

    // Returns the messages between this process and the bus daemon about a name.
    Lines TraceOf(const std::string& name)
    {
        const std::string self = g_dbus_connection_get_unique_name(shared_.get());
        std::set<std::uint32_t> calls;
        Lines lines;
        for (const Message& message : trace_->Messages()) {
            const bool isSent = message.sender == self && message.destination == kBusName;
            const bool isReceived = message.sender == kBusName && message.destination == self;
            if (message.member == "NameHasOwner" || (!isSent && !isReceived) ||
                (message.replySerial != 0 && !calls.contains(message.replySerial))) {
                continue;
            }
            if (isSent) {
                calls.insert(message.serial);
            }
            const std::string line = std::to_string(message.type) + " flags " + std::to_string(message.flags) +
                                     (isSent ? " sent " : " received ") + message.path + " " + message.interface + " " +
                                     message.member + " " + message.errorName + " " + message.signature + " " +
                                     (message.errorName.empty() ? message.BodyText() : "");
            lines.push_back(Replace(line, name, "NAME"));
        }
        trace_->Clear();
        return lines;
    }

    // Returns when the bus has answered the process, or has nothing more to answer.
    void WaitForMessages(std::size_t count, const std::string& member)
    {
        const std::string self = g_dbus_connection_get_unique_name(shared_.get());
        WaitUntil(std::to_string(count) + " messages of " + member, [&] {
            std::set<std::uint32_t> calls;
            std::size_t found = 0;
            for (const Message& message : trace_->Messages()) {
                if (message.sender == self && message.member == member) {
                    calls.insert(message.serial);
                }
                found += message.destination == self && calls.contains(message.replySerial) ? 1 : 0;
            }
            return found == count;
        });
    }

    // Returns the messages of GIO's name owner on the connection that the process shares.
    Lines TraceOfGio(const std::function<void()>& meanwhile, bool isReleased)
    {
        const kiv::link::ContextOwner context(g_main_context_new());
        g_main_context_push_thread_default(context.get());
        bool isToldOf = false;
        const auto onTold = [](GDBusConnection*, const gchar*, gpointer told) { *static_cast<bool*>(told) = true; };
        trace_->Clear();
        const guint owner = g_bus_own_name(
            G_BUS_TYPE_SYSTEM, kPlainName, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, onTold, onTold, &isToldOf, nullptr);
        const auto iterateUntilTold = [&] {
            WaitUntil("GIO to tell of the name", [&] {
                g_main_context_iteration(context.get(), FALSE);
                return isToldOf;
            });
        };
        iterateUntilTold();
        if (meanwhile) {
            isToldOf = false;
            meanwhile();
            iterateUntilTold();
        }
        g_bus_unown_name(owner);
        while (g_main_context_iteration(context.get(), FALSE) != FALSE) {
        }
        if (isReleased) {
            WaitForMessages(1, "ReleaseName");
        }
        g_main_context_pop_thread_default(context.get());
        return TraceOf(kPlainName);
    }

    Lines TraceOfLibrary(const std::function<void()>& meanwhile, bool isReleased)
    {
        trace_->Clear();
        EXPECT_TRUE(client_.GetProxy(kClientXml, {}, false, false));
        WaitForMessages(1, "RequestName");
        WaitForMonitorThread();
        if (meanwhile) {
            meanwhile();
            WaitForMonitorThread();
        }
        EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
        if (isReleased) {
            WaitForMessages(1, "ReleaseName");
        }
        return TraceOf(ClientBusName());
    }

    // Returns when everything that the bus has sent so far is handled, because a later call of the object has been
    // answered.
    void WaitForMonitorThread()
    {
        const kiv::sandbox::Connection caller(bus_.Address());
        for (int attempt = 0; attempt < 2; ++attempt) {
            const kiv::link::VariantOwner reply(g_dbus_connection_call_sync(
                caller.Get(), g_dbus_connection_get_unique_name(shared_.get()), ClientPath().c_str(),
                "org.freedesktop.DBus.Properties", "GetAll", g_variant_new("(s)", ClientInterface().c_str()), nullptr,
                G_DBUS_CALL_FLAGS_NO_AUTO_START, 20'000, nullptr, nullptr));
            ASSERT_NE(reply.get(), nullptr);
        }
    }

    // Makes another connection own the name.
    std::unique_ptr<kiv::sandbox::Connection> Occupy(const std::string& name)
    {
        auto other = std::make_unique<kiv::sandbox::Connection>(bus_.Address());
        other->CallDaemon(kBusName, "RequestName", g_variant_new("(su)", name.c_str(), 0U));
        return other;
    }

    void RequestInThisProcess(const std::string& name)
    {
        const kiv::link::VariantOwner reply(g_dbus_connection_call_sync(
            shared_.get(), kBusName, "/org/freedesktop/DBus", kBusName, "RequestName",
            g_variant_new("(su)", name.c_str(), 0U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        ASSERT_NE(reply.get(), nullptr);
    }

    static bool Has(const Lines& lines, const std::string& member)
    {
        return std::ranges::any_of(
            lines, [&](const std::string& line) { return line.find(member) != std::string::npos; });
    }

    const kiv::link::ConnectionOwner shared_ = [] {
        kiv::link::ConnectionOwner shared(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
        g_dbus_connection_set_exit_on_close(shared.get(), FALSE);
        return shared;
    }();
};

TEST_F(ClientNameTest, AskedForAndGivenBack)
{
    const Lines gio = TraceOfGio(nullptr, true);
    EXPECT_TRUE(Has(gio, "RequestName"));
    EXPECT_TRUE(Has(gio, "NameAcquired"));
    EXPECT_TRUE(Has(gio, "ReleaseName"));
    EXPECT_EQ(TraceOfLibrary(nullptr, true), gio);
}

TEST_F(ClientNameTest, GivenBackFromTheQueue)
{
    const auto first = Occupy(kPlainName);
    const auto second = Occupy(ClientBusName());
    const Lines gio = TraceOfGio(nullptr, true);
    EXPECT_FALSE(Has(gio, "NameAcquired"));
    EXPECT_EQ(TraceOfLibrary(nullptr, true), gio);
}

TEST_F(ClientNameTest, AcquiredFromTheQueue)
{
    auto first = Occupy(kPlainName);
    auto second = Occupy(ClientBusName());
    const auto waitForAcquired = [this] {
        const std::string self = g_dbus_connection_get_unique_name(shared_.get());
        WaitUntil("the name's turn", [&] {
            return std::ranges::any_of(trace_->Messages(), [&](const Message& message) {
                return message.destination == self && message.member == "NameAcquired";
            });
        });
    };
    const Lines gio = TraceOfGio(
        [&] {
            first.reset();
            waitForAcquired();
        },
        true);
    EXPECT_TRUE(Has(gio, "NameAcquired"));
    const Lines library = TraceOfLibrary(
        [&] {
            second.reset();
            waitForAcquired();
        },
        true);
    EXPECT_EQ(library, gio);
}

// Other code in the process owns the name already, so the name owner must not release it.
TEST_F(ClientNameTest, OfSomebodyElseInTheProcess)
{
    RequestInThisProcess(kPlainName);
    RequestInThisProcess(ClientBusName());
    const Lines gio = TraceOfGio(nullptr, false);
    EXPECT_FALSE(Has(gio, "ReleaseName"));
    EXPECT_EQ(TraceOfLibrary(nullptr, false), gio);
}

class DeniedNameTest : public ClientNameTest {
protected:
    DeniedNameTest() : ClientNameTest({{}, kDenyPlain}) {}
};

TEST_F(DeniedNameTest, IsNotGivenBack)
{
    const Lines gio = TraceOfGio(nullptr, false);
    EXPECT_TRUE(Has(gio, "AccessDenied"));
    EXPECT_FALSE(Has(gio, "ReleaseName"));
    EXPECT_EQ(TraceOfLibrary(nullptr, false), gio);
}

} // namespace
} // namespace client_name_test
