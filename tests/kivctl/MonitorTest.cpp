#include "KivctlTest.h"
#include <KivServiceInterface.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>

namespace kiv::ctl {
namespace {

constexpr int kUnknownEvent = 0x01020304;
constexpr const char* kReady = "kivctl: ready, waiting for events";
constexpr const char* kJsonReady = R"({"ready":true})";

using MonitorTest = KivctlTest;

std::string DataOf(size_t size)
{
    std::string data;
    while (data.size() < size) {
        data += static_cast<char>(data.size());
    }
    return data;
}

TEST_F(MonitorTest, ShowsEventsAsTheyCome)
{
    Running monitor(bus_, {"monitor"});
    ASSERT_EQ(monitor.ErrLine(), kReady);
    SendEvent(NAMSERVICE_EXIT_STATE, "");
    EXPECT_EQ(monitor.OutLine(), "event 0x02020031 NAMSERVICE_EXIT_STATE, length 0");
    SendEvent(kUnknownEvent, std::string("\x01\x00\xff", 3));
    EXPECT_EQ(monitor.OutLine(), "event 0x01020304, length 3: 01 00 ff");
    SendPayload(std::string("\xfe\xff\xff\xff\xfd\xff\xff\xff", 8));
    EXPECT_EQ(monitor.OutLine(), "event 0xfffffffe, length -3");
}

TEST_F(MonitorTest, ShowsAnAtmosChangeToBothKindsOfCallback)
{
    Running monitor(bus_, {"monitor"});
    ASSERT_EQ(monitor.ErrLine(), kReady);
    g_variant_unref(Control("SetAtmos", g_variant_new("(b)", TRUE)));
    EXPECT_EQ(monitor.OutLine(), "atmos 1");
    EXPECT_EQ(monitor.OutLine(), "event 0x02020028 NAMSERVICE_ATMOS_STATE, length 4: 01 00 00 00");
}

TEST_F(MonitorTest, ShowsOneObjectALineToScripts)
{
    Running monitor(bus_, {"--json", "monitor"});
    ASSERT_EQ(monitor.OutLine(), kJsonReady);
    SendEvent(NAMSERVICE_ATMOS_STATE, "\x01");
    EXPECT_EQ(monitor.OutLine(), R"({"atmos":1})");
    EXPECT_EQ(monitor.OutLine(), R"({"event":"0x02020028","name":"NAMSERVICE_ATMOS_STATE","length":1,"data":"01"})");
    SendEvent(kUnknownEvent, std::string(40, '\xab'));
    const Json event = Json::parse(monitor.OutLine());
    EXPECT_EQ(event.at("name"), nullptr);
    EXPECT_EQ(event.at("length"), 40);
    EXPECT_EQ(event.at("data").get<std::string>().size(), 80U);

    monitor.Signal(SIGTERM);
    const Ended ended = monitor.Wait();
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_EQ(ended.out + ended.err, "");
}

TEST_F(MonitorTest, ShortensLongData)
{
    Running monitor(bus_, {"monitor"});
    ASSERT_EQ(monitor.ErrLine(), kReady);
    SendEvent(kUnknownEvent, DataOf(32));
    const std::string whole = monitor.OutLine();
    EXPECT_EQ(whole.substr(whole.size() - 6), " 1e 1f");
    SendEvent(kUnknownEvent, DataOf(33));
    const std::string shortened = monitor.OutLine();
    EXPECT_EQ(shortened.substr(shortened.size() - 19), " 1e 1f ... (1 more)");
}

TEST_F(MonitorTest, ShowsAllOfTheDataOnRequest)
{
    Running monitor(bus_, {"monitor", "--raw", "--count", "1"});
    ASSERT_EQ(monitor.ErrLine(), kReady);
    SendEvent(kUnknownEvent, DataOf(5000));
    const Ended ended = monitor.Wait();
    const std::string head = "event 0x01020304, length 2200: ";
    EXPECT_EQ(ended.out.substr(0, head.size()), head);
    EXPECT_EQ(ended.out.size(), head.size() + 3 * NAMSERVICE_EVENT_DATA_MAX);
}

TEST_F(MonitorTest, EndsAfterTheEventsAskedForAndUnsubscribes)
{
    Running monitor(bus_, {"monitor", "--count", "2", "--name", "mine"});
    ASSERT_EQ(monitor.ErrLine(), kReady);
    for (int event = 1; event <= 3; ++event) {
        try {
            SendEvent(event, "");
        } catch (const std::runtime_error&) {
            // The third may find the client gone.
            EXPECT_EQ(event, 3);
        }
    }
    const Ended ended = monitor.Wait();
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_EQ(ended.out, "event 0x00000001, length 0\nevent 0x00000002, length 0\n");

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
        Running monitor(bus_, {"monitor"});
        ASSERT_EQ(monitor.ErrLine(), kReady);
        monitor.Signal(signal);
        const Ended ended = monitor.Wait();
        EXPECT_EQ(ended.exitCode, 0);
        EXPECT_EQ(ended.out + ended.err, "");
        EXPECT_EQ(Calls().back().rfind("UnsubscribeNamServiceCallback", 0), 0U);
    }
}

TEST_F(MonitorTest, EndsWhenTheServersIdAllowsNoEvents)
{
    for (const std::string id : {"not a name", "no-path", "no/name"}) {
        g_variant_unref(Control("SetClientId", g_variant_new("(s)", id.c_str())));
        const Ended ended = Run({"monitor"});
        EXPECT_EQ(ended.exitCode, 1);
        EXPECT_NE(ended.err.find("no events can come to a client with the id \"" + id + '"'), std::string::npos)
            << ended.err;
    }
}

TEST_F(MonitorTest, EndsWhenTheBusIsLost)
{
    Running monitor(bus_, {"--json", "monitor"});
    ASSERT_EQ(monitor.OutLine(), kJsonReady);
    bus_.Kill();
    const Ended ended = monitor.Wait();
    EXPECT_EQ(ended.exitCode, 1);
    EXPECT_EQ(Json::parse(ended.out).at("error"), "the connection to the system bus is lost");
}

TEST_F(MonitorTest, AsksAServerThatComesBackForItsEvents)
{
    Running monitor(bus_, {"--json", "monitor"});
    ASSERT_EQ(monitor.OutLine(), kJsonReady);
    for (int i = 0; i < 3; ++i) {
        g_variant_unref(Control("Exit", nullptr));
        // The event and the loss are told by two threads.
        std::vector<std::string> lines{monitor.OutLine(), monitor.OutLine()};
        std::sort(lines.begin(), lines.end());
        EXPECT_EQ(Json::parse(lines[0]).value("name", ""), "NAMSERVICE_EXIT_STATE");
        EXPECT_EQ(lines[1], R"({"server":false})");
        bus_.Activate("org.lumra.tv.networkspeaker.server");
        EXPECT_EQ(monitor.OutLine(), R"({"server":true})");
        // Only subscribers are told.
        g_variant_unref(Control("SetAtmos", g_variant_new("(b)", TRUE)));
        EXPECT_EQ(monitor.OutLine(), R"({"atmos":1})");
        EXPECT_EQ(Json::parse(monitor.OutLine()).at("name"), "NAMSERVICE_ATMOS_STATE");
    }
}

TEST_F(MonitorTest, DoesNotStartAServerThatHasGone)
{
    Running monitor(bus_, {"monitor"});
    ASSERT_EQ(monitor.ErrLine(), kReady);
    g_variant_unref(Control("Exit", nullptr));
    EXPECT_EQ(monitor.ErrLine(), "kivctl: the server has gone");
    monitor.Signal(SIGINT);
    EXPECT_EQ(monitor.Wait().exitCode, 0);
    EXPECT_EQ(Calls(), std::vector<std::string>{});
}

TEST_F(MonitorTest, GoesOnWhenAServerThatComesBackRefuses)
{
    Running monitor(bus_, {"monitor"});
    ASSERT_EQ(monitor.ErrLine(), kReady);
    const std::string refusing =
        WriteFile(R"({"faults": {"SubscribeNamServiceCallback": {"error": "org.example.Broken"}}})");
    bus_.WriteService({"org.lumra.tv.networkspeaker.server", {KIV_SIMULATOR, "--scenario", refusing}});
    g_variant_unref(Control("Exit", nullptr));
    EXPECT_EQ(monitor.ErrLine(), "kivctl: the server has gone");
    bus_.Activate("org.lumra.tv.networkspeaker.server");
    EXPECT_EQ(
        monitor.ErrLine(),
        "kivctl: SubscribeNamServiceCallback returned 0: the request failed, or the server refused it");
    SendEvent(kUnknownEvent, "");
    EXPECT_EQ(monitor.OutLine(), "event 0x02020031 NAMSERVICE_EXIT_STATE, length 0");
    EXPECT_EQ(monitor.OutLine(), "event 0x01020304, length 0");
}

TEST_F(MonitorTest, FailsWhenTheServerRefusesTheSubscription)
{
    SetFault("SubscribeNamServiceCallback", "error", "'org.example.Broken'");
    const Ended ended = Run({"monitor"});
    EXPECT_EQ(ended.exitCode, 1);
    EXPECT_EQ(
        ended.err, "kivctl: SubscribeNamServiceCallback returned 0: the request failed, or the server refused it; "
                   "kivctl doctor tells why\n");
}

} // namespace
} // namespace kiv::ctl
