#include "support/BusTest.h"

#include <unistd.h>

#include <functional>
#include <future>
#include <ostream>
#include <vector>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

const std::string kEnter = "D MethodCall: [NAM_API] Enter";
const std::string kAbsent = "E m_IsExistedBusname: !!! ERROR org.lumra.tv.networkspeaker.server not exist ";
const std::string kIdFailed = "E GetProxy: !!! ERROR [NAM_API] m_GetProxyObj fail";

class CallFrameTest : public BusTest {};

// --- The gate -----------------------------------------------------------------------------------------------------

TEST_F(CallFrameTest, TheFeatureIsReadOnceAndKept)
{
    EXPECT_FALSE(GetWhetherKivDisabled());
    EXPECT_TRUE(g_GetSystemVal);
    EXPECT_FALSE(g_KivDisabled);
    EXPECT_THAT(
        platform_log::OfTestThread(), ElementsAre("I GetWhetherKivDisabled: GetWhetherKivDisabled g_KivDisabled=[0]"));

    feature::Set(false);
    EXPECT_FALSE(GetWhetherKivDisabled());
    EXPECT_EQ(feature::Reads(), 1);
    EXPECT_EQ(feature::LastKey(), "com.molvane/featureconf/kiv_multi_ch_support");
    EXPECT_THAT(platform_log::Lines(), ::testing::SizeIs(1));
}

TEST_F(CallFrameTest, ADeviceWithoutTheFeatureIsDisabled)
{
    feature::Set(false);
    EXPECT_TRUE(GetWhetherKivDisabled());
    EXPECT_TRUE(g_GetSystemVal);
    EXPECT_TRUE(g_KivDisabled);

    feature::Set(true);
    EXPECT_TRUE(GetWhetherKivDisabled());
    EXPECT_EQ(feature::Reads(), 1);
    EXPECT_EQ(platform_log::Count("I GetWhetherKivDisabled: GetWhetherKivDisabled g_KivDisabled=[1]"), 2U);
}

TEST_F(CallFrameTest, AnUnreadableFeatureIsReadAgainAndSwitchesNothingOff)
{
    StartServer();
    feature::Set(std::nullopt);
    EXPECT_FALSE(GetWhetherKivDisabled());
    EXPECT_FALSE(g_GetSystemVal);
    EXPECT_THAT(platform_log::Lines(), IsEmpty());

    EXPECT_EQ(StopNetworkSpeaker(1), 1);
    EXPECT_EQ(feature::Reads(), 2);

    feature::Set(false);
    EXPECT_EQ(StopNetworkSpeaker(1), -1);
    EXPECT_EQ(StopNetworkSpeaker(1), -1);
    EXPECT_EQ(feature::Reads(), 3);
}

TEST_F(CallFrameTest, WhatTheHostPresetsCountsWhileTheFeatureIsUnreadable)
{
    feature::Set(std::nullopt);
    g_KivDisabled = true;
    EXPECT_TRUE(GetWhetherKivDisabled());
    EXPECT_FALSE(g_GetSystemVal);
}

struct Function {
    const char* name;
    int disabled; // its result on a device without the feature
    std::function<int()> call;
};

void PrintTo(const Function& function, std::ostream* out)
{
    *out << function.name;
}

void OnEvent(int, void*, int) {}
void OnAtmos(int, void*) {}

const Function kFunctions[] = {
    {"StartNetworkSpeaker", -1,
     [] {
         std::vector<STNetSpkConfig> list(1);
         return StartNetworkSpeaker(80, list, 0);
     }},
    {"StopNetworkSpeaker", -1, [] { return StopNetworkSpeaker(0); }},
    {"DisableSurround", -1, [] { return DisableSurround(); }},
    {"GetSurroundChannelNumber", -1, [] { return GetSurroundChannelNumber(); }},
    {"SubscribeNamServiceCallback", 0, [] { return SubscribeNamServiceCallback("name", OnEvent); }},
    {"UnsubscribeNamServiceCallback", 0, [] { return UnsubscribeNamServiceCallback("name"), 0; }},
    {"NodeRemoveFromWatcher", -1, [] { return NodeRemoveFromWatcher(0); }},
    {"kiv_is_receiver_atmos", 0, [] { return static_cast<int>(kiv_is_receiver_atmos()); }},
    {"register_atmos_support_cb", -1, [] { return register_atmos_support_cb(OnAtmos, nullptr); }},
};

class EachFunctionTest : public BusTest, public ::testing::WithParamInterface<Function> {
protected:
    // The lines of the frame, without those that a function writes before it.
    static Lines FrameLines()
    {
        Lines lines = platform_log::OfTestThread();
        std::erase_if(lines, [](const std::string& line) {
            return (line.ends_with("Enter") && line != kEnter) ||
                   line.ends_with("register vconf cb register_atmos_support_cb");
        });
        return lines;
    }

    const std::string name_ = GetParam().name;
};

TEST_P(EachFunctionTest, DoesNothingOnADeviceWithoutTheFeature)
{
    StartServer();
    feature::Set(false);
    GetWhetherKivDisabled();
    ForgetTraffic();

    EXPECT_EQ(GetParam().call(), GetParam().disabled);

    EXPECT_THAT(
        FrameLines(), ElementsAre(
                          "I GetWhetherKivDisabled: GetWhetherKivDisabled g_KivDisabled=[1]",
                          "E " + name_ + ": [NAM_API] GetWhetherKivDisabled failed"));
    EXPECT_THAT(trace_->Messages(), IsEmpty());
    EXPECT_EQ(CNSGdbus::m_pInstance->m_pConnection, nullptr);
}

TEST_P(EachFunctionTest, TriesThreeTimesToReachAnAbsentServer)
{
    GetWhetherKivDisabled();
    ForgetTrafficOnly();

    EXPECT_EQ(GetParam().call(), GetParam().disabled);

    EXPECT_THAT(FrameLines(), ElementsAreArray(UnreachableLines(name_)));
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery));
}

TEST_P(EachFunctionTest, StartsAnAbsentServerThatCanBeStarted)
{
    MakeServerActivatable();
    GetWhetherKivDisabled();
    ForgetTrafficOnly();

    GetParam().call();

    const Lines lines = FrameLines();
    ASSERT_GE(lines.size(), 6U);
    EXPECT_THAT(
        Lines(lines.begin(), lines.begin() + 6),
        ElementsAre(
            "I " + name_ + ": >>> API Start ", kAbsent, kIdFailed,
            "E " + name_ + ": !!! ERROR ns_proxy.GetProxy() return error, request launch kiv-service", kEnter, kEnter));
    const std::string method = name_ == "register_atmos_support_cb" ? "SubscribeNamServiceCallback"
                               : name_ == "StartNetworkSpeaker"     ? "SetNetSpkSettingMode"
                                                                    : name_;
    const Lines calls = control_.Methods();
    ASSERT_GE(calls.size(), 3U);
    EXPECT_THAT(
        Lines(calls.begin(), calls.begin() + 3), ElementsAre("check_dbus_connection", "check_dbus_connection", method));
}

INSTANTIATE_TEST_SUITE_P(Functions, EachFunctionTest, ::testing::ValuesIn(kFunctions), [](const auto& function) {
    return std::string(function.param.name);
});

// --- The server comes and goes ------------------------------------------------------------------------------------

TEST_F(CallFrameTest, AnActivatableServerIsStartedByTheSecondAttempt)
{
    MakeServerActivatable();

    EXPECT_EQ(StopNetworkSpeaker(9), 9);

    Lines sent = Sent();
    std::erase_if(sent, [](const std::string& message) { return message.starts_with("RequestName"); });
    EXPECT_THAT(
        sent, ElementsAre(
                  kOwnerQuery,            // first attempt
                  IdQuery(),              // second
                  kOwnerQuery, IdQuery(), // third
                  kOwnerQuery, "StopNetworkSpeaker(9)"));
}

TEST_F(CallFrameTest, AServerThatGivesNoIdIsAskedThreeTimes)
{
    StartServer();
    Connect();
    control_.SetFault("check_dbus_connection", "{'error': <'org.example.Refused'>, 'message': <'no'>}");

    EXPECT_EQ(StopNetworkSpeaker(1), -1);

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), IdQuery(), kOwnerQuery, IdQuery()));
    const std::string refused =
        "E MethodCall: [NAM_API] Error: method [check_dbus_connection],[GDBus.Error:org.example.Refused: no]...";
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAre(
            "I StopNetworkSpeaker: >>> API Start ", kEnter, refused, kIdFailed,
            "E StopNetworkSpeaker: !!! ERROR ns_proxy.GetProxy() return error, request launch kiv-service", kEnter,
            refused, kIdFailed, kEnter, refused, kIdFailed,
            "E StopNetworkSpeaker: !!! ERROR ns_proxy.GetProxy() return error, return"));
}

TEST_F(CallFrameTest, AServerThatCannotBeStartedIsAnError)
{
    bus_.WriteService({kServerName, {"/bin/false"}});
    EXPECT_EQ(StopNetworkSpeaker(9), -1);
    EXPECT_EQ(platform_log::Count("E StopNetworkSpeaker: !!! ERROR ns_proxy.GetProxy() return error, return"), 1U);
}

TEST_F(CallFrameTest, AServerThatComesBackIsUsedAgain)
{
    StartServer();
    Connect();
    KillServer();
    EXPECT_EQ(StopNetworkSpeaker(1), -1);
    StartServer();
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
}

TEST_F(CallFrameTest, AServerThatDiesInTheCallIsAFailedCall)
{
    StartServer();
    Connect();
    control_.SetFault("StopNetworkSpeaker", "{'exit': <true>}");

    EXPECT_EQ(StopNetworkSpeaker(1), -1);

    EXPECT_THAT(
        platform_log::OfTestThread(), ElementsAre(
                                          "I StopNetworkSpeaker: >>> API Start ", kEnter,
                                          "M StopNetworkSpeaker: [NAM_API] STOP, nStopType[1]", kEnter,
                                          "E MethodCall: [NAM_API] Error: method "
                                          "[StopNetworkSpeaker],[GDBus.Error:org.freedesktop.DBus.Error.NoReply:"
                                          " Message recipient disconnected from message bus without replying]...",
                                          "E StopNetworkSpeaker: [NAM_API] MethodCall Error"));
}

TEST_F(CallFrameTest, AServerThatGoesBetweenTheTwoOwnerQueriesIsAFailedCall)
{
    StartServer();
    Connect();
    // It dies once the id has been answered: by the time of the second query it has no owner.
    platform_log::OnLine([&](const LogLine& line) {
        if (line.function == "StopNetworkSpeaker" && line.priority == 7) {
            KillServer();
        }
    });

    EXPECT_EQ(StopNetworkSpeaker(1), -1);

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery));
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAre(
            "I StopNetworkSpeaker: >>> API Start ", kEnter, "M StopNetworkSpeaker: [NAM_API] STOP, nStopType[1]",
            kAbsent, "E StopNetworkSpeaker: [NAM_API] MethodCall Error"));
}

// --- Threads ------------------------------------------------------------------------------------------------------

TEST_F(CallFrameTest, AnyThreadMayCallAtOnce)
{
    StartServer();
    std::vector<std::future<int>> results;
    for (int caller = 0; caller < 16; ++caller) {
        results.push_back(std::async(std::launch::async, [caller] {
            int wrong = 0;
            for (int call = 0; call < 20; ++call) {
                const int stopType = caller * 1000 + call;
                wrong += StopNetworkSpeaker(stopType) != stopType ? 1 : 0;
            }
            return wrong;
        }));
    }
    for (auto& wrong : results) {
        EXPECT_EQ(wrong.get(), 0);
    }
}

TEST_F(CallFrameTest, ASlowCallHoldsUpNobody)
{
    StartServer();
    Connect();
    control_.SetFault("DisableSurround", "{'delay': <uint32 6000>}");
    auto slow = std::async(std::launch::async, [] { return DisableSurround(); });
    // Until the server has it.
    while (control_.Methods().empty() || control_.Methods().back() != "DisableSurround") {
        usleep(1000);
    }

    for (int call = 0; call < 20; ++call) {
        EXPECT_EQ(StopNetworkSpeaker(call), call);
    }
    control_.SendEvent(0x1234, {});
    EXPECT_EQ(slow.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    EXPECT_NE(slow.get(), -1);
}

} // namespace
