#include "KivctlTest.h"

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

namespace kiv::ctl::doctor_test {
namespace {

constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";

constexpr const char* kIntroduction =
    "kivctl: doctor has the bus start the server unless it runs, and subscribes to events for a moment";

class DoctorTest : public KivctlTest {
protected:
    // Returns the findings, by subject. Checks that a problem has advice and exit code 1, and that the last object has
    // the counts.
    std::map<std::string, std::string> Examine() const
    {
        const Ended ended = Run({"--json", "doctor"});
        EXPECT_EQ(ended.err, "");
        std::istringstream lines(ended.out);
        std::map<std::string, std::string> found;
        std::map<std::string, int> counts;
        Json sum;
        for (std::string line; std::getline(lines, line);) {
            EXPECT_TRUE(sum.is_null()) << line;
            const Json object = Json::parse(line);
            if (object.contains("result")) {
                sum = object;
                continue;
            }
            const std::string state = object.at("state");
            ++counts[state];
            EXPECT_EQ(object.at("advice") != "", state == "note" || state == "problem") << object;
            EXPECT_EQ(object.at("milliseconds").is_null(), state == "skipped") << object;
            found[object.at("check")] = state + ": " + object.at("found").get<std::string>();
        }
        EXPECT_EQ(found.size(), 10U) << ended.out;
        EXPECT_EQ(
            sum, Json(
                     {{"command", "doctor"},
                      {"result", counts["problem"] == 0},
                      {"problems", counts["problem"]},
                      {"notes", counts["note"]},
                      {"ok", counts["ok"]},
                      {"skipped", counts["skipped"]}}));
        EXPECT_EQ(ended.exitCode, counts["problem"] == 0 ? 0 : 1);
        return found;
    }
};

std::string BecauseOf(const std::string& subject)
{
    return "skipped: not tried, because of the problem with \"" + subject + "\"";
}

// Returns the subjects of the findings in a text with their states, such as "ok bus".
std::vector<std::string> Subjects(const std::string& text)
{
    const std::regex finding(R"((ok|note|problem|skipped) +([a-z ]+[a-z])  .*)");
    std::istringstream lines(text);
    std::vector<std::string> subjects;
    std::smatch match;
    for (std::string line; std::getline(lines, line);) {
        if (std::regex_match(line, match, finding)) {
            subjects.push_back(match[1].str() + ' ' + match[2].str());
        }
    }
    return subjects;
}

const std::string kAdvice = std::string(33, ' ') + "-> ";

Json LastObject(const std::string& out)
{
    return Json::parse(out.substr(out.rfind('\n', out.size() - 2) + 1));
}

// Returns the advice of a finding in a text.
std::string AdviceOf(const std::string& out, const std::string& finding)
{
    const size_t at = out.find(finding + '\n' + kAdvice);
    if (at == std::string::npos) {
        ADD_FAILURE() << finding << " is not in " << out;
        return {};
    }
    const size_t begin = at + finding.size() + 1 + kAdvice.size();
    return out.substr(begin, out.find('\n', begin) - begin);
}

void ExpectBegins(const std::string& text, const std::string& head)
{
    EXPECT_EQ(text.substr(0, head.size()), head);
}

TEST_F(DoctorTest, FindsNothingWhereAllIsWell)
{
    const Ended text = Run({"doctor"});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_EQ(text.err.find(kIntroduction), 0U) << text.err;
    EXPECT_EQ(
        Subjects(text.out), (std::vector<std::string>{
                                "ok feature", "ok bus", "ok client name", "ok activation", "ok server", "ok call",
                                "ok client id", "ok subscription", "ok endpoint", "ok events"}));
    EXPECT_EQ(text.out.find("->"), std::string::npos) << text.out;
    EXPECT_TRUE(text.out.ends_with("\nnothing is wrong: 0 problems, 0 notes, 10 ok, 0 skipped\n")) << text.out;
    ExpectBegins(Examine().at("events"), "ok: a test event arrived");
}

TEST_F(DoctorTest, ShowsEachFindingBeforeTheNextCheck)
{
    SetFault("check_dbus_connection", "silent", "true");
    Running doctor(bus_, {"doctor"});
    for (const char* head :
         {"ok       feature ", "ok       bus ", "ok       client name ", "ok       activation ", "ok       server "}) {
        ExpectBegins(doctor.OutLine(), head);
    }
    std::string pending;
    while (pending != "kivctl: asking the server, up to 8 s ...") {
        pending = doctor.ErrLine();
        ASSERT_NE(pending, "");
    }
    doctor.Signal(SIGKILL);
}

TEST_F(DoctorTest, ATimeLimitLeavesTheFindingsSoFarAndSkipsTheRest)
{
    SetFault("check_dbus_connection", "silent", "true");
    const Ended text = Run({"--timeout", "2", "doctor"});
    EXPECT_EQ(text.exitCode, 4);
    EXPECT_EQ(
        Subjects(text.out), (std::vector<std::string>{
                                "ok feature", "ok bus", "ok client name", "ok activation", "ok server", "note call",
                                "skipped client id", "skipped subscription", "skipped endpoint", "skipped events"}));
    // The check may take 8 s, and begins in the first or the second second.
    EXPECT_TRUE(std::regex_match(AdviceOf(text.out, " ms  not known within --timeout"), std::regex("give it (9|10) s")))
        << text.out;
    EXPECT_NE(text.out.find("  not tried, because the time is up\n"), std::string::npos) << text.out;
    EXPECT_TRUE(
        text.out.ends_with("\nnot done within 2000 ms, asking the server: 0 problems, 1 note, 5 ok, 4 skipped\n"))
        << text.out;
    EXPECT_TRUE(text.err.ends_with("kivctl: asking the server, up to 8 s ...\n")) << text.err;

    const Ended json = Run({"--json", "--timeout", "2", "doctor"});
    EXPECT_EQ(json.exitCode, 4);
    EXPECT_EQ(
        LastObject(json.out), Json(
                                  {{"command", "doctor"},
                                   {"result", false},
                                   {"problems", 0},
                                   {"notes", 1},
                                   {"ok", 5},
                                   {"skipped", 4},
                                   {"error", "doctor: not done within 2000 ms, asking the server"}}));
}

TEST_F(DoctorTest, ATimeLimitMayEndTheLastStep)
{
    SetFault("UnsubscribeNamServiceCallback", "silent", "true");
    const Ended ended = Run({"--timeout", "2", "doctor"});
    EXPECT_EQ(ended.exitCode, 4);
    EXPECT_TRUE(ended.out.ends_with(
        "\nnot done within 2000 ms, taking the subscription back: 0 problems, 0 notes, 10 ok, 0 skipped\n"))
        << ended.out;
}

TEST_F(DoctorTest, TellsHowLongAServerWasGivenThatDoesNotAnswer)
{
    SetFault("check_dbus_connection", "silent", "true");
    const auto found = Examine();
    EXPECT_EQ(found.at("call"), "problem: the server cannot be asked: no answer within 8 s");
    EXPECT_EQ(found.at("events"), BecauseOf("call"));
}

TEST_F(DoctorTest, NotesWhatTakesOverASecond)
{
    SetFault("check_dbus_connection", "delay", "uint32 1100");
    const Ended text = Run({"doctor"});
    EXPECT_EQ(text.exitCode, 0);
    const std::vector<std::string> subjects = Subjects(text.out);
    EXPECT_EQ(subjects.at(5), "note call");
    EXPECT_NE(
        text.out.find(" ms  the server answers\n" + std::string(33, ' ') + "-> this took over 1 s, "),
        std::string::npos)
        << text.out;
}

// The library gives a call 8 s, in which the bus must start the server.
TEST_F(DoctorTest, FindsThatTheServerStartsTooSlowly)
{
    bus_.WriteService({kServerName, {"/bin/sh", "-c", std::string("sleep 8.5; exec ") + KIV_SIMULATOR}});
    const auto found = Examine();
    ExpectBegins(found.at("server"), "problem: runs as process ");
    EXPECT_TRUE(found.at("server").ends_with(", but started in over 8 s: a call waits no longer for that, and fails"))
        << found.at("server");
    ExpectBegins(found.at("events"), "ok: ");
}

TEST_F(DoctorTest, TellsHowToWakeAServerThatIsStopped)
{
    SetFault("check_dbus_connection", "silent", "true");
    const std::string advice = AdviceOf(Run({"doctor"}).out, "the server cannot be asked: no answer within 8 s");
    EXPECT_TRUE(std::regex_match(
        advice, std::regex("wake the server, process ([0-9]+), if it is stopped \\(state T in ps; kill -CONT \\1\\), "
                           "or look into its own log to see what keeps it busy")))
        << advice;
}

TEST_F(DoctorTest, FindsThatTheServerEndsWhenItIsAsked)
{
    SetFault("check_dbus_connection", "exit", "true");
    EXPECT_EQ(
        AdviceOf(Run({"doctor"}).out, "the server ended before it answered"),
        "look into the server's own log to see why it ended");
}

TEST_F(DoctorTest, FindsThatTheBusDoesNotAnswer)
{
    kill(bus_.DaemonPid(), SIGSTOP);
    const auto found = Examine();
    const Ended timed = Run({"--timeout", "1", "doctor"});
    kill(bus_.DaemonPid(), SIGCONT);
    EXPECT_EQ(found.at("bus"), "problem: does not answer at " + bus_.Address() + ": no answer within 8 s");
    EXPECT_EQ(found.at("events"), BecauseOf("bus"));
    EXPECT_EQ(timed.exitCode, 4);
    EXPECT_EQ(AdviceOf(timed.out, "not known within --timeout"), "give it 9 s");
    EXPECT_TRUE(
        timed.out.ends_with("\nnot done within 1000 ms, connecting to the bus: 0 problems, 1 note, 1 ok, 8 skipped\n"))
        << timed.out;
}

TEST_F(DoctorTest, FindsThatTheBusIsLostMeanwhile)
{
    SetFault("check_dbus_connection", "delay", "uint32 1000");
    Running doctor(bus_, {"--json", "doctor"});
    for (int line = 0; line < 5; ++line) {
        doctor.OutLine();
    }
    kill(bus_.DaemonPid(), SIGKILL);
    const Ended ended = doctor.Wait();
    EXPECT_EQ(ended.exitCode, 1);
    EXPECT_EQ(LastObject(ended.out).at("problems"), 1) << ended.out;
    EXPECT_EQ(LastObject(ended.out).at("skipped"), 4) << ended.out;
}

TEST_F(DoctorTest, TellsTheErrorOfABusThatRefusesTheConnection)
{
    std::ofstream(bus_.Directory() / "policy.conf")
        << "<busconfig><limit name=\"max_connections_per_user\">1</limit></busconfig>";
    bus_.ReloadConfig();
    const sandbox::Connection other(bus_.Address());
    ExpectBegins(Examine().at("bus"), "problem: answers with the error org.freedesktop.DBus.Error.LimitsExceeded: ");
}

TEST_F(DoctorTest, FindsThatTheFeatureIsOff)
{
    SwitchFeatureOff();
    const auto found = Examine();
    ExpectBegins(found.at("feature"), "problem: this device has no network speakers");
    ExpectBegins(found.at("client id"), "ok: ");
    EXPECT_EQ(found.at("subscription"), BecauseOf("feature"));
    EXPECT_EQ(found.at("events"), BecauseOf("feature"));
}

TEST_F(DoctorTest, NotesThatTheFeatureCannotBeRead)
{
    const std::string file = bus_.Directory() / "features";
    const std::string unknown = "note: whether this device has network speakers cannot be read, which counts as yes";
    RemoveFeature();
    auto found = Examine();
    EXPECT_EQ(found.at("feature"), unknown + ": " + file + ": No such file or directory");
    ExpectBegins(found.at("events"), "ok: ");

    std::ofstream(file) << "[com.molvane/featureconf]\nkiv_multi_ch_support=perhaps\n";
    EXPECT_EQ(
        Examine().at("feature"),
        unknown + ": " + file + ": kiv_multi_ch_support must be true or false, got \"perhaps\"");
    RemoveFeature();
    std::filesystem::create_directory(file);
    ExpectBegins(Examine().at("feature"), unknown + ": " + file + ": ");
}

TEST_F(DoctorTest, FindsThatThereIsNoBus)
{
    bus_.Kill();
    const auto found = Examine();
    ExpectBegins(found.at("bus"), "problem: cannot be reached: ");
    for (const char* subject :
         {"client name", "activation", "server", "call", "client id", "subscription", "endpoint", "events"}) {
        EXPECT_EQ(found.at(subject), BecauseOf("bus"));
    }
}

TEST_F(DoctorTest, FindsThatNobodyCanStartTheServer)
{
    bus_.RemoveService(kServerName);
    EXPECT_EQ(Examine().at("activation"), "problem: the bus cannot start the server, which does not run");
}

TEST_F(DoctorTest, NotesThatNobodyCanStartTheServerAgain)
{
    bus_.Activate(kServerName);
    bus_.RemoveService(kServerName);
    const auto found = Examine();
    EXPECT_EQ(found.at("activation"), "note: the bus cannot start the server; if the server ends, it stays away");
    ExpectBegins(found.at("events"), "ok: ");
}

TEST_F(DoctorTest, FindsThatTheServerDoesNotStart)
{
    bus_.WriteService({kServerName, {"/bin/false"}});
    const auto found = Examine();
    ExpectBegins(found.at("activation"), "ok: ");
    ExpectBegins(
        found.at("server"), "problem: does not run: org.freedesktop.DBus.Error.Spawn.ChildExited: Process "
                            "org.lumra.tv.networkspeaker.server exited with status 1");
}

TEST_F(DoctorTest, FindsThatTheServerDoesNotAnswerAsItShould)
{
    SetFault("check_dbus_connection", "error", "'org.example.Broken'");
    ExpectBegins(Examine().at("call"), "problem: the server answers with the error org.example.Broken");
    SetFault("check_dbus_connection", "reply", "<(5,)>");
    EXPECT_EQ(Examine().at("call"), "problem: the server answers (i) instead of a client id");
}

TEST_F(DoctorTest, FindsThatAnIdIsUnfit)
{
    g_variant_unref(Control("ClientId", g_variant_new("(s)", "no-path")));
    EXPECT_EQ(Examine().at("client id"), "problem: \"no-path\" does not fit into a D-Bus name, so no events can come");
}

TEST_F(DoctorTest, FindsThatTheServerRefusesEvents)
{
    SetFault("SubscribeNamServiceCallback", "error", "'org.example.Broken'");
    ExpectBegins(Examine().at("subscription"), "problem: the server refuses the subscription: org.example.Broken");
}

TEST_F(DoctorTest, DistinguishesSilenceFromARefusalOfEvents)
{
    SetFault("SubscribeNamServiceCallback", "silent", "true");
    EXPECT_EQ(Examine().at("subscription"), "problem: the server does not answer the subscription within 8 s");
}

TEST_F(DoctorTest, FindsThatTheServerAnswersTheSubscriptionWithNoId)
{
    SetFault("SubscribeNamServiceCallback", "reply", "<(0,)>");
    const auto found = Examine();
    EXPECT_EQ(found.at("subscription"), "problem: the server answers the subscription with (i) instead of a client id");
    EXPECT_EQ(found.at("events"), BecauseOf("subscription"));
}

TEST_F(DoctorTest, FindsThatTheServerAnswersTheSubscriptionWithAnotherId)
{
    g_variant_unref(Control("ClientId", g_variant_new("(s)", "one")));
    SetFault("SubscribeNamServiceCallback", "reply", "<('other',)>");
    EXPECT_EQ(
        Examine().at("subscription"),
        "problem: the server answers the subscription with the client id \"other\", but gave \"one\" before, for which "
        "alone the library receives events");
}

TEST_F(DoctorTest, FindsThatTheServerEndsOfASubscription)
{
    SetFault("SubscribeNamServiceCallback", "exit", "true");
    EXPECT_EQ(
        AdviceOf(Run({"doctor"}).out, "the server ended before it answered SubscribeNamServiceCallback"),
        "look into the server's own log to see why it ended");
}

TEST_F(DoctorTest, FindsThatAnotherProcessHasTheName)
{
    g_variant_unref(Control("ClientId", g_variant_new("(s)", "taken")));
    const sandbox::Connection other(bus_.Address());
    other.CallDaemon(
        "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", "org.lumra.tv.networkspeaker.client.taken", 0U));
    EXPECT_EQ(
        Examine().at("endpoint"), "problem: org.lumra.tv.networkspeaker.client.taken is owned by process " +
                                      std::to_string(getpid()) + ", which gets the events of this process");
}

TEST_F(DoctorTest, FindsWhatThePolicyForbids)
{
    Forbid(R"(<deny own_prefix="org.lumra.tv.networkspeaker.client"/>)");
    auto found = Examine();
    ExpectBegins(found.at("client name"), "problem: may not be owned: org.freedesktop.DBus.Error.AccessDenied: ");
    EXPECT_EQ(found.at("subscription"), BecauseOf("client name"));

    Forbid(R"(<deny send_destination="org.lumra.tv.networkspeaker.server"
                    send_interface="org.lumra.tv.networkspeaker.server.interface"/>)");
    found = Examine();
    ExpectBegins(found.at("client name"), "ok: ");
    ExpectBegins(found.at("call"), "problem: the server cannot be asked: org.freedesktop.DBus.Error.AccessDenied: ");

    Forbid(
        R"(<deny send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus" send_member="ListActivatableNames"/>)");
    found = Examine();
    ExpectBegins(
        found.at("activation"),
        "note: the bus does not say what it can start: org.freedesktop.DBus.Error.AccessDenied: ");
    ExpectBegins(found.at("events"), "ok: ");

    Forbid(
        R"(<deny send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus" send_member="NameHasOwner"/>)");
    found = Examine();
    ExpectBegins(found.at("call"), "ok: ");
    ExpectBegins(
        found.at("subscription"), "problem: the bus does not tell the library whether the server runs: "
                                  "org.freedesktop.DBus.Error.AccessDenied: ");
}

// The server and doctor both run as the user of this test.
TEST_F(DoctorTest, FindsThatTheServersUserMaySendNoEvents)
{
    Forbid(R"(<deny send_path="*" send_member="nam_notify_subscriber"/>)");
    const auto found = Examine();
    ExpectBegins(found.at("endpoint"), "ok: ");
    EXPECT_NE(found.at("events").find("problem: the bus lets "), std::string::npos) << found.at("events");
    EXPECT_NE(
        found.at("events").find(", the server's user, send no event: org.freedesktop.DBus.Error.AccessDenied: "),
        std::string::npos)
        << found.at("events");
}

TEST_F(DoctorTest, FindsThatEventsMayNotBeReceived)
{
    g_variant_unref(Control("ClientId", g_variant_new("(s)", "doctors")));
    Forbid(
        R"(<deny receive_path="/org/lumra/tv/networkspeaker/client/doctors" receive_member="nam_notify_subscriber"/>)");
    ExpectBegins(
        Examine().at("events"),
        "problem: the bus lets this user receive no event: org.freedesktop.DBus.Error.AccessDenied: ");
}

// Only root can start the server as another user. For other users, these tests are skipped.
class DoctorOfAnotherUserTest : public DoctorTest {
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can start a server of another user";
        }
        // The other user still has the group.
        using std::filesystem::perms;
        std::filesystem::permissions(
            bus_.Directory(), perms::group_exec | perms::others_exec, std::filesystem::perm_options::add);
        bus_.WriteService({kServerName, {"/usr/bin/setpriv", "--reuid=nobody", "--clear-groups", KIV_SIMULATOR}});
    }

    void ExpectUnproven(const std::string& finding) const
    {
        const Ended ended = Run({"doctor"});
        EXPECT_EQ(ended.exitCode, 0);
        EXPECT_EQ(
            AdviceOf(ended.out, finding),
            "the server runs as nobody; run this as nobody to see whether its events arrive");
        EXPECT_TRUE(
            ended.out.ends_with("\nno problem found, but events are not proven: 0 problems, 1 note, 9 ok, 0 skipped\n"))
            << ended.out;
    }
};

TEST_F(DoctorOfAnotherUserTest, NotesThatOnlyTheServersUserMaySendEvents)
{
    Forbid(R"(<deny send_path="*" send_member="nam_notify_subscriber"/>)");
    ExpectUnproven("the bus lets this user send no event, as it should: only the server may send events");
}

TEST_F(DoctorOfAnotherUserTest, ProvesNothingByEventsOfItsOwn)
{
    ExpectUnproven("a test event of this user arrived, but the bus may refuse the server's events");
}

} // namespace
} // namespace kiv::ctl::doctor_test
