#include "kivctl/KivctlTest.h"

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

namespace kiv::ctl::doctor_test {
namespace {

constexpr const char* kIntroduction =
    "kivctl: doctor has the bus start the server unless it runs, and subscribes to events for a moment";

// The expected findings, by subject.
using Findings = std::map<std::string, testing::Matcher<std::string>>;

class DoctorTest : public KivctlTest {
protected:
    // Returns the findings, by subject. Checks that a problem has advice and exit code 1, and that the last object has
    // the counts.
    std::map<std::string, std::string> Examine() const
    {
        const Ended ended = Run({"--json", "doctor"});
        EXPECT_EQ(ended.err, "");
        std::map<std::string, std::string> found;
        std::map<std::string, int> counts;
        Json sum;
        for (const std::string& line : LinesOf(ended.out)) {
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

    void ExpectFindings(const Findings& findings) const
    {
        const auto found = Examine();
        for (const auto& [subject, finding] : findings) {
            EXPECT_THAT(found.at(subject), finding) << subject;
        }
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
    std::vector<std::string> subjects;
    std::smatch match;
    for (const std::string& line : LinesOf(text)) {
        if (std::regex_match(line, match, finding)) {
            subjects.push_back(match[1].str() + ' ' + match[2].str());
        }
    }
    return subjects;
}

const std::string kAdvice = std::string(33, ' ') + "-> ";

Json LastObject(const std::string& out)
{
    return Json::parse(LinesOf(out).back());
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

TEST_F(DoctorTest, FindsNothingWhereAllIsWell)
{
    const Ended text = Run({"doctor"});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_THAT(text.err, StartsWith(kIntroduction));
    EXPECT_EQ(
        Subjects(text.out), (std::vector<std::string>{
                                "ok feature", "ok bus", "ok client name", "ok activation", "ok server", "ok call",
                                "ok client id", "ok subscription", "ok endpoint", "ok events"}));
    EXPECT_THAT(text.out, Not(HasSubstr("->")));
    EXPECT_THAT(text.out, EndsWith("\nnothing is wrong: 0 problems, 0 notes, 10 ok, 0 skipped\n"));
    ExpectFindings(
        {{"call",
          "ok: the server answers check_dbus_connection; other methods are not tried: try one with kivctl call"},
         {"events", StartsWith("ok: a test event arrived")}});
}

TEST_F(DoctorTest, ShowsTheLibrarysLinesBelowTheProblem)
{
    SetFault("SubscribeNamServiceCallback", "error", "'org.example.Broken'");
    const std::string text = RunInShell("env -u KIV_LOG_LEVEL kivctl doctor 2>&1").out;
    const size_t line = text.find("[GDBus.Error:org.example.Broken");
    ASSERT_NE(line, std::string::npos) << text;
    EXPECT_LT(text.find("problem  subscription"), line) << text;
    EXPECT_LT(line, text.find("skipped  endpoint")) << text;
}

TEST_F(DoctorTest, TellsThatARecordingLacksTheCall)
{
    SetFault("check_dbus_connection", "error", "'org.lumra.tv.networkspeaker.simulator.Error.NotRecorded'");
    EXPECT_EQ(
        AdviceOf(
            Run({"doctor"}).out,
            "the server answers with the error org.lumra.tv.networkspeaker.simulator.Error.NotRecorded"),
        "the server replays a recording that has no such call: record one that has it");
}

TEST_F(DoctorTest, ShowsEachFindingBeforeTheNextCheck)
{
    SetFault("check_dbus_connection", "silent", "true");
    Running doctor(bus_, {"doctor"});
    for (const char* head :
         {"ok       feature ", "ok       bus ", "ok       client name ", "ok       activation ", "ok       server "}) {
        EXPECT_THAT(doctor.OutLine(), StartsWith(head));
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
    EXPECT_THAT(text.out, HasSubstr("  not tried, because the time is up\n"));
    EXPECT_THAT(
        text.out, EndsWith("\nnot done within 2000 ms, asking the server: 0 problems, 1 note, 5 ok, 4 skipped\n"));
    EXPECT_THAT(text.err, EndsWith("kivctl: asking the server, up to 8 s ...\n"));

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
    EXPECT_THAT(
        Run({"--timeout", "2", "doctor"}),
        Ends(
            4,
            EndsWith(
                "\nnot done within 2000 ms, taking the subscription back: 0 problems, 0 notes, 10 ok, 0 skipped\n"),
            _));
}

TEST_F(DoctorTest, NotesWhatTakesOverASecond)
{
    SetFault("check_dbus_connection", "delay", "uint32 1100");
    const Ended text = Run({"doctor"});
    EXPECT_EQ(text.exitCode, 0);
    const std::vector<std::string> subjects = Subjects(text.out);
    EXPECT_EQ(subjects.at(5), "note call");
    EXPECT_THAT(
        text.out, AllOf(
                      HasSubstr(" try one with kivctl call\n" + std::string(33, ' ') + "-> this took over 1 s, "),
                      HasSubstr("\nno problem found, but see the 2 notes: 0 problems, 2 notes, ")));
}

// The library gives a call 8 s, in which the bus must start the server.
TEST_F(DoctorTest, FindsThatTheServerStartsTooSlowly)
{
    bus_.WriteService({kServerName, {"/bin/sh", "-c", std::string("sleep 8.5; exec ") + KIV_SIMULATOR}});
    const auto found = Examine();
    EXPECT_THAT(found.at("server"), StartsWith("problem: runs as process "));
    EXPECT_THAT(found.at("server"), EndsWith(", but started in over 8 s: a call waits no longer for that, and fails"));
    EXPECT_THAT(found.at("events"), StartsWith("ok: "));
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
    for (const auto& [method, finding] :
         {std::pair("check_dbus_connection", "the server ended before it answered"),
          std::pair(
              "SubscribeNamServiceCallback", "the server ended before it answered SubscribeNamServiceCallback")}) {
        SetFault(method, "exit", "true");
        EXPECT_EQ(AdviceOf(Run({"doctor"}).out, finding), "look into the server's own log to see why it ended");
    }
}

TEST_F(DoctorTest, FindsThatTheBusDoesNotAnswer)
{
    kill(bus_.DaemonPid(), SIGSTOP);
    const auto found = Examine();
    const Ended timed = Run({"--timeout", "1", "doctor"});
    kill(bus_.DaemonPid(), SIGCONT);
    EXPECT_EQ(
        found.at("bus"),
        "problem: does not answer at " + bus_.Address() + " (from DBUS_SYSTEM_BUS_ADDRESS): no answer within 8 s");
    EXPECT_EQ(found.at("events"), BecauseOf("bus"));
    EXPECT_EQ(timed.exitCode, 4);
    EXPECT_EQ(AdviceOf(timed.out, "not known within --timeout"), "give it 9 s");
    EXPECT_THAT(
        timed.out, EndsWith("\nnot done within 1000 ms, connecting to the bus: 0 problems, 1 note, 1 ok, 8 skipped\n"));
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
    ExpectFindings(
        {{"bus", StartsWith("problem: answers with the error org.freedesktop.DBus.Error.LimitsExceeded: ")}});
}

TEST_F(DoctorTest, FindsThatTheFeatureIsOff)
{
    SwitchFeatureOff();
    ExpectFindings(
        {{"feature", StartsWith("problem: this device has no network speakers")},
         {"client id", StartsWith("ok: ")},
         {"subscription", BecauseOf("feature")},
         {"events", BecauseOf("feature")}});
}

TEST_F(DoctorTest, NotesThatTheFeatureCannotBeRead)
{
    const std::string file = bus_.Directory() / "features";
    const std::string unknown = "note: whether this device has network speakers cannot be read, which counts as yes";
    RemoveFeature();
    ExpectFindings(
        {{"feature", unknown + ": " + file + ": No such file or directory"}, {"events", StartsWith("ok: ")}});

    std::ofstream(file) << "[com.molvane/featureconf]\nkiv_multi_ch_support=perhaps\n";
    ExpectFindings(
        {{"feature", unknown + ": " + file + ": kiv_multi_ch_support must be true or false, got \"perhaps\""}});
    RemoveFeature();
    std::filesystem::create_directory(file);
    ExpectFindings({{"feature", StartsWith(unknown + ": " + file + ": ")}});
}

TEST_F(DoctorTest, FindsThatThereIsNoBus)
{
    bus_.Kill();
    const auto found = Examine();
    EXPECT_THAT(
        found.at("bus"), StartsWith(
                             "problem: cannot be reached at " + bus_.Address() +
                             " (from DBUS_SYSTEM_BUS_ADDRESS): Could not connect: "));
    EXPECT_THAT(
        Run({"doctor"}).out,
        HasSubstr("-> correct or unset DBUS_SYSTEM_BUS_ADDRESS, or start the bus that it names\n"));
    for (const char* subject :
         {"client name", "activation", "server", "call", "client id", "subscription", "endpoint", "events"}) {
        EXPECT_EQ(found.at(subject), BecauseOf("bus"));
    }
}

TEST_F(DoctorTest, FindsThatNobodyCanStartTheServer)
{
    bus_.RemoveService(kServerName);
    ExpectFindings({{"activation", "problem: the bus cannot start the server, which does not run"}});
}

TEST_F(DoctorTest, NotesThatNobodyCanStartTheServerAgain)
{
    bus_.Activate(kServerName);
    bus_.RemoveService(kServerName);
    ExpectFindings(
        {{"activation", "note: the bus cannot start the server; if the server ends, it stays away"},
         {"events", StartsWith("ok: ")}});
    EXPECT_THAT(
        Run({"doctor"}).out, EndsWith("\nno problem found, but see the note: 0 problems, 1 note, 9 ok, 0 skipped\n"));
}

TEST_F(DoctorTest, FindsThatTheServerDoesNotStart)
{
    bus_.WriteService({kServerName, {"/bin/false"}});
    ExpectFindings(
        {{"activation", StartsWith("ok: ")},
         {"server", StartsWith("problem: does not run: org.freedesktop.DBus.Error.Spawn.ChildExited: Process "
                               "org.lumra.tv.networkspeaker.server exited with status 1")}});
}

TEST_F(DoctorTest, FindsThatAnIdIsUnfit)
{
    SetClientId("no-path");
    ExpectFindings({{"client id", "problem: \"no-path\" does not fit into a D-Bus name, so no events can come"}});
}

struct Fault {
    std::string method;
    std::string key;
    std::string value;
    Findings findings;
};

class DoctorOfAFaultTest : public DoctorTest, public testing::WithParamInterface<Fault> {};

TEST_P(DoctorOfAFaultTest, FindsIt)
{
    SetFault(GetParam().method, GetParam().key.c_str(), GetParam().value);
    ExpectFindings(GetParam().findings);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, DoctorOfAFaultTest,
    testing::Values(
        Fault{
            "check_dbus_connection",
            "silent",
            "true",
            {{"call", "problem: the server cannot be asked: no answer within 8 s"}, {"events", BecauseOf("call")}}},
        Fault{
            "check_dbus_connection",
            "error",
            "'org.example.Broken'",
            {{"call", StartsWith("problem: the server answers with the error org.example.Broken")}}},
        Fault{
            "check_dbus_connection",
            "reply",
            "<(5,)>",
            {{"call", "problem: the server answers (i) instead of a client id"}}},
        Fault{
            "SubscribeNamServiceCallback",
            "silent",
            "true",
            {{"subscription", "problem: the server does not answer the subscription within 8 s"}}},
        Fault{
            "SubscribeNamServiceCallback",
            "error",
            "'org.example.Broken'",
            {{"subscription", StartsWith("problem: the server refuses the subscription: org.example.Broken")}}},
        Fault{
            "SubscribeNamServiceCallback",
            "reply",
            "<(0,)>",
            {{"subscription", "problem: the server answers the subscription with (i) instead of a client id"},
             {"events", BecauseOf("subscription")}}}),
    [](const auto& fault) { return fault.param.method + "_" + fault.param.key; });

TEST_F(DoctorTest, FindsThatTheServerAnswersTheSubscriptionWithAnotherId)
{
    SetClientId("one");
    SetFault("SubscribeNamServiceCallback", "reply", "<('other',)>");
    ExpectFindings(
        {{"subscription", "problem: the server answers the subscription with the client id \"other\", but gave \"one\" "
                          "before, for which "
                          "alone the library receives events"}});
}

TEST_F(DoctorTest, FindsThatAnotherProcessHasTheName)
{
    SetClientId("taken");
    const sandbox::Connection other(bus_.Address());
    other.CallDaemon(
        "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", "org.lumra.tv.networkspeaker.client.taken", 0U));
    ExpectFindings(
        {{"endpoint", "problem: org.lumra.tv.networkspeaker.client.taken is owned by process " +
                          std::to_string(getpid()) + ", which gets the events of this process"}});
}

TEST_F(DoctorTest, FindsWhatThePolicyForbids)
{
    Forbid(kDenyClientName);
    ExpectFindings(
        {{"client name", StartsWith("problem: may not be owned: org.freedesktop.DBus.Error.AccessDenied: ")},
         {"subscription", BecauseOf("client name")}});

    Forbid(R"(<deny send_destination="org.lumra.tv.networkspeaker.server"
                    send_interface="org.lumra.tv.networkspeaker.server.interface"/>)");
    ExpectFindings(
        {{"client name", StartsWith("ok: ")},
         {"call", StartsWith("problem: the server cannot be asked: org.freedesktop.DBus.Error.AccessDenied: ")}});

    Forbid(
        R"(<deny send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus" send_member="ListActivatableNames"/>)");
    ExpectFindings(
        {{"activation",
          StartsWith("note: the bus does not say what it can start: org.freedesktop.DBus.Error.AccessDenied: ")},
         {"events", StartsWith("ok: ")}});

    Forbid(
        R"(<deny send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus" send_member="NameHasOwner"/>)");
    ExpectFindings(
        {{"call", StartsWith("ok: ")},
         {"subscription", StartsWith("problem: the bus does not tell the library whether the server runs: "
                                     "org.freedesktop.DBus.Error.AccessDenied: ")}});
}

// The server and doctor both run as the user of this test.
TEST_F(DoctorTest, FindsThatTheServersUserMaySendNoEvents)
{
    Forbid(R"(<deny send_path="*" send_member="nam_notify_subscriber"/>)");
    const auto found = Examine();
    EXPECT_THAT(found.at("endpoint"), StartsWith("ok: "));
    EXPECT_THAT(found.at("events"), HasSubstr("problem: the bus lets "));
    EXPECT_THAT(
        found.at("events"), HasSubstr(", the server's user, send no event: org.freedesktop.DBus.Error.AccessDenied: "));
}

TEST_F(DoctorTest, FindsThatEventsMayNotBeReceived)
{
    SetClientId("doctors");
    Forbid(
        R"(<deny receive_path="/org/lumra/tv/networkspeaker/client/doctors" receive_member="nam_notify_subscriber"/>)");
    ExpectFindings(
        {{"events",
          StartsWith("problem: the bus lets this user receive no event: org.freedesktop.DBus.Error.AccessDenied: ")}});
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
        EXPECT_THAT(
            ended.out,
            EndsWith("\nno problem found, but events are not proven: 0 problems, 1 note, 9 ok, 0 skipped\n"));
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
