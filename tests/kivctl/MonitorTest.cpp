#include "kivctl/KivctlTest.h"
#include "support/Wait.h"
#include <KivServiceInterface.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

namespace kiv::ctl::monitor_test {
namespace {

constexpr int kUnknownEvent = 0x01020304;
constexpr const char* kReady = "kivctl: ready, waiting for events";

using MonitorTest = KivctlTest;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A monitor that is ready.
class Monitor : public Running {
public:
    Monitor(const sandbox::PrivateBus& bus, const Arguments& arguments) : Running(bus, arguments)
    {
        const bool isJson = std::ranges::count(arguments, "--json") != 0;
        const std::string line = isJson ? OutLine() : ErrLine();
        if (line != (isJson ? R"({"ready":true})" : kReady)) {
            throw std::runtime_error("monitor must be ready, got " + line);
        }
    }
};

std::string DataOf(size_t size)
{
    std::string data;
    while (data.size() < size) {
        data += static_cast<char>(data.size());
    }
    return data;
}

// Returns an event's line without the time before it.
std::string EventLine(Running& monitor)
{
    const std::string line = monitor.OutLine();
    static const std::regex kTime(R"(\d\d:\d\d:\d\d\.\d{3} )");
    EXPECT_TRUE(std::regex_search(line, kTime, std::regex_constants::match_continuous)) << line;
    return std::regex_replace(line, kTime, "", std::regex_constants::format_first_only);
}

// Returns an event's object without its time.
std::string EventObject(Running& monitor)
{
    auto object = nlohmann::ordered_json::parse(monitor.OutLine());
    static const std::regex kTime(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)");
    EXPECT_TRUE(std::regex_match(object.value("time", ""), kTime)) << object;
    object.erase("time");
    return object.dump();
}

TEST_F(MonitorTest, ShowsEventsAsTheyCome)
{
    Monitor monitor(bus_, {"monitor"});
    SendEvent(NAMSERVICE_EXIT_STATE, "");
    EXPECT_EQ(EventLine(monitor), "event 0x02020031 NAMSERVICE_EXIT_STATE, length 0");
    SendEvent(kUnknownEvent, std::string("\x01\x00\xff", 3));
    EXPECT_EQ(EventLine(monitor), "event 0x01020304, length 3: 01 00 ff");
    SendPayload(std::string("\xfe\xff\xff\xff\xfd\xff\xff\xff", 8));
    EXPECT_EQ(EventLine(monitor), "event 0xfffffffe, length -3");
}

TEST_F(MonitorTest, ShowsAnAtmosChangeToBothKindsOfCallback)
{
    Monitor monitor(bus_, {"monitor"});
    SwitchAtmosOn();
    EXPECT_EQ(EventLine(monitor), "atmos 1");
    EXPECT_EQ(EventLine(monitor), "event 0x02020028 NAMSERVICE_ATMOS_STATE, length 4: 01 00 00 00");
}

TEST_F(MonitorTest, ShowsOneObjectALineToScripts)
{
    Monitor monitor(bus_, {"--json", "monitor"});
    SendEvent(NAMSERVICE_ATMOS_STATE, "\x01");
    EXPECT_EQ(EventObject(monitor), R"({"atmos":1})");
    EXPECT_EQ(EventObject(monitor), R"({"event":"0x02020028","name":"NAMSERVICE_ATMOS_STATE","length":1,"data":"01"})");
    SendEvent(kUnknownEvent, std::string(40, '\xab'));
    const Json event = Json::parse(monitor.OutLine());
    EXPECT_EQ(event.at("name"), nullptr);
    EXPECT_EQ(event.at("length"), 40);
    EXPECT_EQ(event.at("data").get<std::string>().size(), 80U);

    monitor.Signal(SIGTERM);
    EXPECT_THAT(monitor.Wait(), Ends(0, "", ""));
}

TEST_F(MonitorTest, ShortensLongData)
{
    Monitor monitor(bus_, {"monitor"});
    SendEvent(kUnknownEvent, DataOf(32));
    const std::string whole = monitor.OutLine();
    EXPECT_EQ(whole.substr(whole.size() - 6), " 1e 1f");
    SendEvent(kUnknownEvent, DataOf(33));
    const std::string shortened = monitor.OutLine();
    EXPECT_EQ(shortened.substr(shortened.size() - 19), " 1e 1f ... (1 more)");
}

TEST_F(MonitorTest, ShowsAllOfTheDataOnRequest)
{
    Monitor monitor(bus_, {"monitor", "--raw", "--count", "1"});
    SendEvent(kUnknownEvent, DataOf(5000));
    const std::string line = EventLine(monitor);
    const std::string head = "event 0x01020304, length 2200: ";
    EXPECT_EQ(line.substr(0, head.size()), head);
    EXPECT_EQ(line.size(), head.size() + 3 * NAMSERVICE_EVENT_DATA_MAX - 1);
    EXPECT_EQ(monitor.Wait().exitCode, 0);
}

TEST_F(MonitorTest, EndsAfterTheEventsAskedForAndUnsubscribes)
{
    Monitor monitor(bus_, {"monitor", "--count", "2", "--name", "mine"});
    for (int event = 1; event <= 3; ++event) {
        try {
            SendEvent(event, "");
        } catch (const std::runtime_error&) {
            // The client may be gone when the third event is sent.
            EXPECT_EQ(event, 3);
        }
    }
    EXPECT_EQ(EventLine(monitor), "event 0x00000001, length 0");
    EXPECT_EQ(EventLine(monitor), "event 0x00000002, length 0");
    EXPECT_THAT(monitor.Wait(), Ends(0, "", _));

    const std::vector<std::string> calls = Calls();
    EXPECT_EQ(
        std::count_if(
            calls.begin(), calls.end(),
            [](const std::string& call) { return call.rfind("UnsubscribeNamServiceCallback", 0) == 0; }),
        2);
}

TEST_F(MonitorTest, EndsWhenInterrupted)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        Monitor monitor(bus_, {"monitor"});
        monitor.Signal(signal);
        EXPECT_THAT(monitor.Wait(), Ends(0, "", ""));
        EXPECT_THAT(Calls().back(), StartsWith("UnsubscribeNamServiceCallback"));
    }
}

TEST_F(MonitorTest, EndsWhenTheServersIdAllowsNoEvents)
{
    for (const std::string id : {"not a name", "no-path", "no/name"}) {
        SetClientId(id.c_str());
        EXPECT_THAT(
            Run({"monitor"}), Ends(1, _, HasSubstr("no events can come to a client with the id \"" + id + '"')));
    }
}

TEST_F(MonitorTest, EndsWhenTheBusIsLost)
{
    Monitor monitor(bus_, {"--json", "monitor"});
    bus_.Kill();
    const Ended ended = monitor.Wait();
    EXPECT_EQ(ended.exitCode, 1);
    EXPECT_EQ(Json::parse(ended.out).at("error"), "the connection to the system bus is lost");
}

// A bus daemon that ends in order takes the names from their owners first, and closes the connections then.
TEST_F(MonitorTest, EndsWhenTheBusIsLostAfterTheNames)
{
    Forbid(kDenyClientName);
    Running monitor(bus_, {"--json", "monitor"});
    ASSERT_EQ(Json::parse(monitor.OutLine()).at("ready"), false);
    Control("Exit");
    ASSERT_EQ(monitor.OutLine(), R"({"server":false})");
    bus_.Kill();
    ASSERT_EQ(Json::parse(monitor.OutLine()).value("error", ""), "the connection to the system bus is lost");
    EXPECT_EQ(monitor.Wait().exitCode, 1);
}

TEST_F(MonitorTest, AsksAServerThatComesBackForItsEvents)
{
    Monitor monitor(bus_, {"--json", "monitor"});
    for (int i = 0; i < 3; ++i) {
        Control("Exit");
        // Two threads report the event and the loss, so their order is not fixed.
        std::vector<Json> lines{Json::parse(monitor.OutLine()), Json::parse(monitor.OutLine())};
        std::ranges::sort(lines, {}, [](const Json& line) { return line.contains("server"); });
        EXPECT_EQ(lines[0].value("name", ""), "NAMSERVICE_EXIT_STATE");
        EXPECT_EQ(lines[1], Json({{"server", false}}));
        bus_.Activate(kServerName);
        EXPECT_EQ(monitor.OutLine(), R"({"server":true})");
        // Only subscribers receive this event.
        SwitchAtmosOn();
        EXPECT_EQ(EventObject(monitor), R"({"atmos":1})");
        EXPECT_EQ(Json::parse(monitor.OutLine()).at("name"), "NAMSERVICE_ATMOS_STATE");
    }
}

TEST_F(MonitorTest, DoesNotStartAServerThatHasGone)
{
    Monitor monitor(bus_, {"monitor"});
    Control("Exit");
    EXPECT_EQ(monitor.ErrLine(), "kivctl: the server has gone");
    monitor.Signal(SIGINT);
    EXPECT_EQ(monitor.Wait().exitCode, 0);
    ExpectCalls({});
}

TEST_F(MonitorTest, GoesOnWhenAServerThatComesBackRefuses)
{
    Monitor monitor(bus_, {"monitor"});
    const std::string refusing =
        WriteFile(R"({"faults": {"SubscribeNamServiceCallback": {"error": "org.example.Broken"}}})");
    bus_.WriteService({kServerName, {KIV_SIMULATOR, "--scenario", refusing}});
    Control("Exit");
    EXPECT_EQ(monitor.ErrLine(), "kivctl: the server has gone");
    bus_.Activate(kServerName);
    EXPECT_EQ(monitor.ErrLine(), "kivctl: SubscribeNamServiceCallback returned 0: " + kBroken);
    SendEvent(kUnknownEvent, "");
    EXPECT_EQ(EventLine(monitor), "event 0x02020031 NAMSERVICE_EXIT_STATE, length 0");
    EXPECT_EQ(EventLine(monitor), "event 0x01020304, length 0");
}

TEST_F(MonitorTest, DecodesWhatTheLayoutNames)
{
    Monitor monitor(bus_, {"monitor", "--layout", KIV_LAYOUT_FILE});
    Run({"volume", "get", kLeft + "=0", kRight});
    EXPECT_EQ(
        EventLine(monitor), "event 0x02020040 volume, length 28: mac 02:4b:49:56:00:01, ip 192.168.0.21, volume 20; "
                            "mac 02:4b:49:56:00:02, ip 192.168.0.22, volume 20");
    SendEvent(0x02020040, DataOf(13));
    EXPECT_EQ(EventLine(monitor), "event 0x02020040 volume, length 13: 00 01 02 03 04 05 06 07 08 09 0a 0b 0c");
    SendEvent(0x02020040, DataOf(15));
    EXPECT_EQ(
        EventLine(monitor), "event 0x02020040 volume, length 15: mac 00:01:02:03:04:05, ip 6.7.8.9, volume 218893066");
    SendEvent(kUnknownEvent, DataOf(1));
    EXPECT_EQ(EventLine(monitor), "event 0x01020304, length 1: 00");

    Monitor raw(bus_, {"monitor", "--raw", "--layout", KIV_LAYOUT_FILE, "--name", "raw"});
    SendEvent(0x02020040, DataOf(14));
    EXPECT_EQ(
        EventLine(raw), "event 0x02020040 volume, length 14: mac 00:01:02:03:04:05, ip 6.7.8.9, volume 218893066: "
                        "00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d");

    Monitor json(bus_, {"monitor", "--json", "--layout", KIV_LAYOUT_FILE});
    SendEvent(0x02020040, DataOf(14));
    EXPECT_EQ(
        EventObject(json), R"({"event":"0x02020040","name":"volume","length":14,"data":"000102030405060708090a0b0c0d",)"
                           R"("decoded":[{"mac":"00:01:02:03:04:05","ip":"6.7.8.9","volume":218893066}]})");
}

TEST_F(MonitorTest, SaysWhatIsMissingWhereTheBusDeniesTheName)
{
    Forbid(kDenyClientName);
    Running monitor(bus_, {"monitor"});
    const std::string line = monitor.ErrLine();
    EXPECT_THAT(
        line, StartsWith("kivctl: not ready, events cannot come: nobody owns the bus name "
                         "org.lumra.tv.networkspeaker.client.tv_"));
    EXPECT_THAT(
        line, EndsWith(", and the bus may not let this user own it; kivctl doctor tells why; start monitor again after "
                       "the policy is "
                       "mended, because the library asks for the name only once"));
    monitor.Signal(SIGINT);
    EXPECT_THAT(
        monitor.Wait(), Ends(1, _, StartsWith("kivctl: never ready, no event could come: nobody owns the bus name ")));

    Running json(bus_, {"monitor", "--json"});
    const Json object = Json::parse(json.OutLine());
    EXPECT_EQ(object.at("ready"), false);
    EXPECT_THAT(object.at("error").get<std::string>(), HasSubstr("nobody owns the bus name"));
}

TEST_F(MonitorTest, SaysWhatIsMissingAlsoWhenItEndsSoon)
{
    Forbid(kDenyClientName);
    Running monitor(bus_, {"monitor"});
    // The second request is for the Atmos events. The end waits for its answer.
    test::WaitUntil("the requests for events", [this] {
        return std::ranges::count_if(Calls(), [](const std::string& call) {
                   return call.starts_with("SubscribeNamServiceCallback");
               }) == 2;
    });
    monitor.Signal(SIGINT);
    EXPECT_THAT(
        monitor.Wait(), Ends(1, _, HasSubstr("kivctl: never ready, no event could come: nobody owns the bus name ")));
}

TEST_F(MonitorTest, SaysWhoHasTheName)
{
    SetClientId("taken");
    const sandbox::Connection other(bus_.Address());
    other.CallDaemon(
        "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", "org.lumra.tv.networkspeaker.client.taken", 0U));
    Running monitor(bus_, {"monitor"});
    EXPECT_EQ(
        monitor.ErrLine(), "kivctl: not ready, events cannot come: the bus name "
                           "org.lumra.tv.networkspeaker.client.taken is owned by process " +
                               std::to_string(getpid()) + ", which gets the events; kivctl doctor tells why");
}

TEST_F(MonitorTest, SaysThatTheServerAnswersTheSubscriptionWithAnotherId)
{
    Control("ClientId", g_variant_new("(s)", "one"));
    SetFault("SubscribeNamServiceCallback", "reply", "<('other',)>");
    Running monitor(bus_, {"monitor"});
    EXPECT_EQ(
        monitor.ErrLine(),
        "kivctl: not ready, events cannot come: the server answers the subscription with the client id \"other\", but "
        "gave \"one\" before, for which alone the library receives events; have the server keep the id of a process "
        "as long as the process lives");
}

TEST_F(MonitorTest, WaitsForAServerThatIsNotThereYet)
{
    bus_.RemoveService(kServerName);
    Running monitor(bus_, {"monitor"});
    const std::string line = monitor.ErrLine();
    EXPECT_THAT(line, StartsWith("kivctl: waiting for the server, which does not run and cannot be started: "));
    bus_.WriteService({kServerName, {KIV_SIMULATOR}});
    bus_.Activate(kServerName);
    EXPECT_EQ(monitor.ErrLine(), kReady);
    SendEvent(kUnknownEvent, "");
    EXPECT_EQ(EventLine(monitor), "event 0x01020304, length 0");
    Control("Exit");
    EXPECT_EQ(monitor.ErrLine(), "kivctl: the server has gone");
}

TEST_F(MonitorTest, EndsAfterTheTimeAskedFor)
{
    const auto start = Clock::now();
    const Ended ended = Run({"monitor", "--for", "2"});
    EXPECT_GE(Clock::now() - start, 2s);
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(
        ended.err,
        std::string(kReady) + "\nkivctl: no event came; kivctl doctor finds out whether events can arrive\n");
    const std::vector<std::string> calls = Calls();
    EXPECT_TRUE(!calls.empty() && calls.back().starts_with("UnsubscribeNamServiceCallback"));

    EXPECT_EQ(
        Run({"--json", "monitor", "--for", "2"}).out,
        "{\"ready\":true}\n{\"events\":0,\"advice\":\"kivctl doctor finds out whether events can arrive\"}\n");

    for (const std::string limit : {"0", "-1", "soon", "1e9"}) {
        ExpectFailure({"monitor", "--for", limit}, 2, "--for: must be a number of seconds above 0");
    }
}

TEST_F(MonitorTest, FailsWhenItNeverWasReady)
{
    bus_.RemoveService(kServerName);
    const std::string reason = "never ready, no event could come: the server does not run and cannot be started: ";
    EXPECT_THAT(Run({"monitor", "--for", "2"}), Ends(1, _, HasSubstr("\nkivctl: " + reason)));
    Running json(bus_, {"--json", "monitor"});
    EXPECT_EQ(Json::parse(json.OutLine()).at("server"), false);
    json.Signal(SIGTERM);
    const Ended ended = json.Wait();
    EXPECT_EQ(ended.exitCode, 1);
    const Json object = Json::parse(ended.out);
    EXPECT_EQ(object.at("ready"), false);
    EXPECT_THAT(object.at("error").get<std::string>(), StartsWith(reason)) << object;
}

// This is shorter than the library waits for a single answer.
constexpr auto kPrompt = 6s;

TEST_F(MonitorTest, EndsInTimeWhileTheServerHangs)
{
    SetFault("*", "silent", "true");
    const auto start = Clock::now();
    const Ended timed = Run({"monitor", "--for", "2", "--timing"});
    EXPECT_LT(Clock::now() - start, kPrompt);
    EXPECT_EQ(timed.exitCode, 1);
    EXPECT_THAT(
        timed.err,
        HasSubstr("kivctl: never ready, no event could come: the server has not answered the request for its "
                  "events; kivctl doctor tells why\ntook "));
}

TEST_F(MonitorTest, SaysThatItAsksTheServer)
{
    SetFault("SubscribeNamServiceCallback", "silent", "true");
    Running monitor(bus_, {"monitor"});
    EXPECT_EQ(monitor.AnyErrLine(), "kivctl: asking the server for its events, up to 32 s ...");
    monitor.Signal(SIGINT);
    EXPECT_EQ(monitor.Wait().exitCode, 1);
}

TEST_F(MonitorTest, EndsWhenInterruptedWhileTheServerHangs)
{
    SetFault("SubscribeNamServiceCallback", "silent", "true");
    for (const int signal : {SIGINT, SIGTERM}) {
        Control("ForgetCalls");
        Running monitor(bus_, {"--timeout", "100", "monitor"});
        test::WaitUntil("the request", [this] { return !Calls().empty(); });
        const auto start = Clock::now();
        monitor.Signal(signal);
        EXPECT_EQ(monitor.Wait().exitCode, 1);
        EXPECT_LT(Clock::now() - start, kPrompt);
    }
}

TEST_F(MonitorTest, TakesItsSubscriptionBackNoLongerThanAMoment)
{
    Monitor monitor(bus_, {"monitor"});
    Monitor counting(bus_, {"monitor", "--count", "1"});
    SetFault("*", "silent", "true");
    const auto start = Clock::now();
    SendEvent(kUnknownEvent, "");
    monitor.Signal(SIGINT);
    EXPECT_EQ(monitor.Wait().exitCode, 0);
    EXPECT_EQ(counting.Wait().exitCode, 0);
    EXPECT_LT(Clock::now() - start, kPrompt);
}

TEST_F(MonitorTest, EndsInTimeWhileTheBusHangs)
{
    kill(bus_.DaemonPid(), SIGSTOP);
    const auto start = Clock::now();
    const Ended ended = Run({"monitor", "--for", "2"});
    EXPECT_LT(Clock::now() - start, kPrompt);
    EXPECT_EQ(ended.exitCode, 1);
    EXPECT_THAT(ended.err, HasSubstr("kivctl: never ready, no event could come: the system bus has not answered; "));
    kill(bus_.DaemonPid(), SIGCONT);
}

TEST_F(MonitorTest, WaitsBetweenTriesWhereTheServerEndsAgainAndAgain)
{
    const std::string dying = WriteFile(R"({"faults": {"check_dbus_connection": {"exit": true}}})");
    const std::string starts = bus_.Directory() / "starts";
    bus_.WriteService(
        {kServerName,
         {"/bin/sh", "-c", "echo >> " + starts + "; exec " + std::string(KIV_SIMULATOR) + " --scenario " + dying}});
    const Ended ended = Run({"monitor", "--for", "4"});
    EXPECT_EQ(ended.exitCode, 1);
    std::ifstream file(starts);
    EXPECT_LT(std::count(std::istreambuf_iterator<char>(file), {}, '\n'), 40);
    EXPECT_LT(std::ranges::count(ended.err, '\n'), 10) << ended.err;
    const std::string told = "kivctl: the server ends soon after each start";
    const size_t at = ended.err.find(told);
    ASSERT_NE(at, std::string::npos) << ended.err;
    EXPECT_EQ(ended.err.find(told, at + 1), std::string::npos) << ended.err;
}

TEST_F(MonitorTest, AsksAServerAgainThatEndedBeforeItAnswered)
{
    SetFault("SubscribeNamServiceCallback", "exit", "true");
    Running monitor(bus_, {"monitor"});
    EXPECT_EQ(
        monitor.ErrLine(),
        "kivctl: the server ended before it answered SubscribeNamServiceCallback; it is asked again");
    // The next server has no fault.
    EXPECT_EQ(monitor.ErrLine(), kReady);
}

TEST_F(MonitorTest, FailsWhenTheServerRefusesTheSubscription)
{
    Break("SubscribeNamServiceCallback");
    EXPECT_THAT(
        Run({"monitor"}),
        Ends(
            1, _,
            "kivctl: SubscribeNamServiceCallback returned 0: the server answered with the error org.example.Broken; "
            "look into the server's own log to see what the error means\n"));
    // The server refuses only the second request, for the Atmos events.
    Control(
        "Fault", g_variant_new_parsed(
                     "('SubscribeNamServiceCallback', {'error': <'org.example.Broken'>, 'every': <uint32 2>})"));
    ExpectFailure(
        {"monitor"}, 1,
        "register_atmos_support_cb returned 0: the server answered SubscribeNamServiceCallback with the error "
        "org.example.Broken");
}

TEST_F(MonitorTest, FailsWhenTheServerAnswersTheSubscriptionWithNoId)
{
    SetFault("SubscribeNamServiceCallback", "reply", "<(0,)>");
    ExpectFailure(
        {"monitor"}, 1, "SubscribeNamServiceCallback returned 1: the answer must be of the D-Bus type (s), got (i)");
    EXPECT_TRUE(Run({"monitor"}).err.ends_with("; use a server that serves this interface (man kiv-dbus)\n"));
}

} // namespace
} // namespace kiv::ctl::monitor_test
