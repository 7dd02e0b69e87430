#include "kivctl/KivctlTest.h"

#include <sys/stat.h>

#include <csignal>

namespace kiv::ctl {
namespace {

using TimeTest = KivctlTest;

constexpr const char* kBusHangs =
    "kivctl: the system bus has not answered yet, and kivctl waits for it; kivctl doctor tells why";

TEST_F(TimeTest, ACallThatTakesLongerThanItMayIsGivenUp)
{
    SetFault("StopNetworkSpeaker", "silent", "true");
    EXPECT_THAT(
        Run({"--timeout", "2", "stop"}),
        Ends(
            4, "",
            "kivctl: stop: not done within 2000 ms: the server has not answered StopNetworkSpeaker; "
            "the server's own log tells why\n"));

    const Ended json = Run({"stop", "--json", "--timeout", "2"});
    EXPECT_EQ(json.exitCode, 4);
    EXPECT_EQ(
        Json::parse(json.out),
        Json(
            {{"command", "stop"},
             {"error", "stop: not done within 2000 ms: the server has not answered StopNetworkSpeaker"},
             {"advice", "the server's own log tells why"}}));
}

TEST_F(TimeTest, AMonitorMayBeLimitedToo)
{
    EXPECT_THAT(
        Run({"--timeout", "2", "monitor"}),
        Ends(4, _, HasSubstr("kivctl: monitor: not done within 2000 ms: kivctl waits for events\n")));
}

TEST_F(TimeTest, SaysWhatItWaitedFor)
{
    SetFault("check_dbus_connection", "silent", "true");
    ExpectFailure(
        {"--timeout", "2", "stop"}, 4,
        "stop: not done within 2000 ms: the server has not answered check_dbus_connection");
    EXPECT_THAT(Run({"--timeout", "2", "stop"}).err, EndsWith("; kivctl doctor tells why\n"));

    kill(bus_.DaemonPid(), SIGSTOP);
    const Ended stop = Run({"--timeout", "2", "stop"});
    kill(bus_.DaemonPid(), SIGCONT);
    EXPECT_EQ(
        stop.err, std::string(kBusHangs) +
                      "\nkivctl: stop: not done within 2000 ms: the system bus does not answer; kivctl doctor tells "
                      "why\n");

    const std::string fifo = bus_.Directory() / "log";
    ASSERT_EQ(mkfifo(fifo.c_str(), S_IRUSR | S_IWUSR), 0);
    ExpectFailure(
        {"--timeout", "2", "explain", fifo}, 4, "explain: not done within 2000 ms: kivctl waits for its input");
}

TEST_F(TimeTest, SaysThatItWaitsForTheBus)
{
    kill(bus_.DaemonPid(), SIGSTOP);
    EXPECT_EQ(Running(bus_, {"mode", "get"}).ErrLine(), kBusHangs);
    EXPECT_EQ(Running(bus_, {"monitor"}).ErrLine(), kBusHangs);
    EXPECT_EQ(Run({"--json", "--timeout", "2", "mode", "get"}).err, "");
    kill(bus_.DaemonPid(), SIGCONT);
}

TEST_F(TimeTest, ACallInTimeIsAsWithoutALimit)
{
    ExpectOutput({"--timeout", "100", "stop", "--type", "3"}, "the server answered 3");
}

TEST_F(TimeTest, ALimitIsANumberOfSeconds)
{
    for (const std::string limit : {"", "0", "-1", "soon", "1s", "nan", "inf", "1e9", "1e300"}) {
        ExpectFailure(
            {"--timeout", limit, "stop"}, 2,
            "--timeout: must be a number of seconds above 0 and not above 1000000, got \"" + limit + '"');
    }
    ExpectCalls({});
}

TEST_F(TimeTest, TimingTellsHowLongItTook)
{
    SetFault("StopNetworkSpeaker", "delay", "uint32 300");
    const Json answer = Json::parse(Run({"--timing", "--json", "stop"}).out);
    EXPECT_EQ(answer.at("result"), 0);
    EXPECT_GE(answer.at("milliseconds").get<double>(), 300);

    const std::string text = Run({"--timing", "stop"}).out;
    const std::string head = "the server answered 0\ntook ";
    ASSERT_EQ(text.substr(0, head.size()), head);
    EXPECT_GE(std::stod(text.substr(head.size())), 300);
    EXPECT_THAT(text, EndsWith(" ms\n"));
}

TEST_F(TimeTest, TimingComesWithFailuresToo)
{
    bus_.RemoveService(kServerName);
    const Ended ended = Run({"--timing", "--json", "stop"});
    EXPECT_EQ(ended.exitCode, 1);
    const Json answer = Json::parse(ended.out);
    EXPECT_TRUE(answer.contains("error"));
    EXPECT_TRUE(answer.at("milliseconds").is_number()) << answer;
}

} // namespace
} // namespace kiv::ctl
