#include "contract/ApiTest.h"
#include "support/Wait.h"

#include <functional>
#include <future>
#include <ostream>
#include <vector>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace call_frame_test {
namespace {

class OfflineCallFrameTest : public BusTest {};
class CallFrameTest : public Connected<BusTest> {};

// --- The gate ---

TEST_F(OfflineCallFrameTest, TheFeatureIsReadOnceAndKept)
{
    EXPECT_FALSE(GetWhetherKivDisabled());
    EXPECT_TRUE(g_GetSystemVal);
    EXPECT_FALSE(g_KivDisabled);
    ExpectLog({"I GetWhetherKivDisabled: GetWhetherKivDisabled g_KivDisabled=[0]"});

    feature::Set(false);
    EXPECT_FALSE(GetWhetherKivDisabled());
    EXPECT_EQ(feature::Reads(), 1);
    EXPECT_EQ(feature::LastKey(), "com.molvane/featureconf/kiv_multi_ch_support");
    EXPECT_THAT(platform_log::Lines(), ::testing::SizeIs(1));
}

TEST_F(OfflineCallFrameTest, ADeviceWithoutTheFeatureIsDisabled)
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

TEST_F(OfflineCallFrameTest, AnUnreadableFeatureIsReadAgainAndSwitchesNothingOff)
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

TEST_F(OfflineCallFrameTest, WhatTheHostPresetsCountsWhileTheFeatureIsUnreadable)
{
    feature::Set(std::nullopt);
    g_KivDisabled = true;
    EXPECT_TRUE(GetWhetherKivDisabled());
    EXPECT_FALSE(g_GetSystemVal);
}

struct Function {
    std::string name;
    int disabled; // its result on a device without the feature; 0 if it returns nothing
    std::function<int()> call;
    Lines first = {};        // its lines before the frame
    std::string frame = {};  // the name under which the frame logs, its own by default
    std::string method = {}; // the server's method that it calls first; its own name by default

    friend void PrintTo(const Function& function, std::ostream* out) { *out << function.name; }
};

void OnEvent(int, void*, int) {}
void OnAtmos(int, void*) {}

const unsigned char kBytes[8] = {};
std::vector<STNetSpkConfig> g_speakers(1);

Function Flag(const std::string& name, bool (*call)(), const Lines& first = {})
{
    return {name, 0, [call] { return static_cast<int>(call()); }, first};
}

Function VolumeStep(const std::string& name, void (*call)(const unsigned char*, int))
{
    return {name, 0, [call] { return call(kBytes, 0), 0; }, {}, "m_SetSpkVolume"};
}

Function VolumeList(const std::string& name, void (*call)(const std::vector<STNetSpkConfig>&))
{
    return {name, 0, [call] { return call(g_speakers), 0; }, {}, "TransformNetSpkList"};
}

// CanEnterTavrinSettings and FlagEnableNetworkSpeaker have another frame. unregister_atmos_support_cb reaches its frame
// only if a callback is registered.
const Function kFunctions[] = {
    {"SubscribeNamServiceCallback",
     0,
     [] { return SubscribeNamServiceCallback("name", OnEvent); },
     {"D SubscribeNamServiceCallback: Enter"}},
    {"UnsubscribeNamServiceCallback", 0, [] { return UnsubscribeNamServiceCallback("name"), 0; }},
    {"NodeRemoveFromWatcher", -1, [] { return NodeRemoveFromWatcher(0); }},
    Flag("kiv_is_receiver_atmos", kiv_is_receiver_atmos, {"I kiv_is_receiver_atmos: [NAM_API] Enter"}),
    {"register_atmos_support_cb",
     -1,
     [] { return register_atmos_support_cb(OnAtmos, nullptr); },
     {"I register_atmos_support_cb: register vconf cb register_atmos_support_cb"},
     {},
     "SubscribeNamServiceCallback"},

    {"StartNetworkSpeaker", -1, [] { return StartNetworkSpeaker(80, g_speakers, 0); }, {}, {}, "SetNetSpkSettingMode"},
    {"StopNetworkSpeaker", -1, [] { return StopNetworkSpeaker(0); }},
    {"DisableSurround", -1, DisableSurround},
    {"GetSurroundChannelNumber", -1, GetSurroundChannelNumber},

    {"GetActiveNetSpkInfo", -1,
     [] {
         char name[128];
         char type[23];
         std::vector<spk_info_s> list;
         return GetActiveNetSpkInfo(name, type, list);
     }},
    {"GetNetSpkListInfo", -1,
     [] {
         std::vector<STNetSpkListInfo> list;
         return GetNetSpkListInfo(list);
     }},
    {"getNetSpkListInfo",
     -1,
     [] {
         std::vector<STNetSpkListInfo> room(100);
         return getNetSpkListInfo(room.data());
     },
     {},
     "GetNetSpkListInfo",
     "GetNetSpkListInfo"},
    {"GetNetSpkListInfoNumber", -1, GetNetSpkListInfoNumber},
    {"GetNetSpkNodeList",
     -1,
     [] {
         std::vector<CNetSpkNodeInfo> list;
         return GetNetSpkNodeList(list);
     },
     {"I GetNetSpkNodeList: GetNetSpkNodeList"}},

    {"ConnectNetworkSpeakerByMobile", -1, [] { return ConnectNetworkSpeakerByMobile(kBytes, 8); }},
    {"Vireon_StartNetworkSpeakerByID", -1, [] { return Vireon_StartNetworkSpeakerByID("ABCDE", 1, 2, 3); }},
    {"StartNetworkSpeakerByID", -1, [] { return StartNetworkSpeakerByID(1, 2, 3); }},
    {"GetSpksConnectionTypeByID", -1, [] { return GetSpksConnectionTypeByID(1); }},
    {"GetSpksConnectionType", -1, [] { return GetSpksConnectionType(&g_speakers); }},
    {"AutoConnectNewSpeakers", -1, [] { return AutoConnectNewSpeakers(kBytes, 1); }},
    {"AutoConnectNewSpeakersForOutdoor",
     -1,
     [] { return AutoConnectNewSpeakersForOutdoor(kBytes, 1); },
     {"I AutoConnectNewSpeakersForOutdoor: AutoConnectNewSpeakersForOutdoor"}},
    {"ConnectToSpeakerForInfraLessSetup", -1, [] { return ConnectToSpeakerForInfraLessSetup(1); }},
    {"StartNetworkSpeakerGroupByMobile", -1, [] { return StartNetworkSpeakerGroupByMobile(1); }},

    Flag("CanCancelTavrin", CanCancelTavrin),
    Flag("PreSelectTavrin", PreSelectTavrin),
    Flag("CanSelectTavrin", CanSelectTavrin, {"D CanSelectTavrin: Enter"}),

    {"StartNetSpkTest", 0, [] { return StartNetSpkTest(kBytes, 1, 2, 3), 0; }},
    {"StopNetSpkTest",
     0,
     [] { return StopNetSpkTest(kBytes, 1, 2), 0; },
     {"I StopNetSpkTest: [NAM_API] Enter, MAC[00:00:00:00:00:00], [2]"}},

    {"SetSoundbarSoundMode", 0, [] { return SetSoundbarSoundMode(kBytes, 0, kBytes, 8), 0; }},
    {"GetSoundbarSoundMode", -1,
     [] {
         unsigned char identity[10];
         unsigned char soundMode[20];
         return GetSoundbarSoundMode(identity, soundMode);
     }},
    {"GetSoundbarDeviceInfo", -1,
     [] {
         unsigned char identity[10];
         return GetSoundbarDeviceInfo(identity);
     }},
    {"SetSoundbarSupportSoundMode", 0, [] { return SetSoundbarSupportSoundMode(kBytes, 0, 1), 0; }},
    {"GetSoundbarProtocolVersion",
     -1,
     [] {
         unsigned char version[20];
         return GetSoundbarProtocolVersion(kBytes, version, 20);
     },
     {"D GetSoundbarProtocolVersion: [NAM_API] Enter"}},
    {"IsSoundbarSupportSoundMode",
     0,
     [] { return static_cast<int>(IsSoundbarSupportSoundMode(kBytes)); },
     {"D IsSoundbarSupportSoundMode: [NAM_API] Enter"}},

    {"SetNetSpkName", 0, [] { return SetNetSpkName(kBytes, 0, "Hall"), 0; }},
    {"SetNetSpkVolume", 0, [] { return SetNetSpkVolume(kBytes, 0, 1), 0; }, {"I SetNetSpkVolume: [NAM_API] Enter"}},
    {"GetNetSpkVolume", 0, [] { return GetNetSpkVolume(kBytes, 0), 0; }, {"D GetNetSpkVolume: [NAM_API] Enter"}},
    VolumeStep("IncreaseNetSpkVolume", IncreaseNetSpkVolume),
    VolumeStep("DecreaseNetSpkVolume", DecreaseNetSpkVolume),
    VolumeStep("ResetNetSpkVolume", ResetNetSpkVolume),
    {"ResetAllNetSpkVolume", 0, [] { return ResetAllNetSpkVolume(), 0; }, {"I ResetAllNetSpkVolume: [NAM_API] Enter"}},
    VolumeList("IncreaseNetSpkVolumeList", IncreaseNetSpkVolumeList),
    VolumeList("DecreaseNetSpkVolumeList", DecreaseNetSpkVolumeList),
    VolumeList("ResetNetSpkVolumeList", ResetNetSpkVolumeList),
    VolumeList("GetNetSpkVolumeList", GetNetSpkVolumeList),

    {"SetTavrinUIMode", -1, [] { return SetTavrinUIMode(80); }},
    {"GetTavrinUIMode", -1, GetTavrinUIMode},
    {"GetNetSpkSettingMode", -1, GetNetSpkSettingMode},
};

class EachFunctionTest : public BusTest, public ::testing::WithParamInterface<Function> {
protected:
    const Function& function_ = GetParam();
    const std::string frame_ = function_.frame.empty() ? function_.name : function_.frame;
    const std::string method_ = function_.method.empty() ? function_.name : function_.method;
};

TEST_P(EachFunctionTest, DoesNothingOnADeviceWithoutTheFeature)
{
    StartServer();
    feature::Set(false);
    GetWhetherKivDisabled();
    ForgetTraffic();

    EXPECT_EQ(function_.call(), function_.disabled);

    ExpectLog(function_.first + DisabledLines(frame_));
    EXPECT_THAT(trace_->Messages(), IsEmpty());
    EXPECT_EQ(CNSGdbus::m_pInstance->m_pConnection, nullptr);
}

TEST_P(EachFunctionTest, TriesThreeTimesToReachAnAbsentServer)
{
    GetWhetherKivDisabled();
    ForgetTrafficOnly();

    EXPECT_EQ(function_.call(), function_.disabled);

    ExpectLog(function_.first + UnreachableLines(frame_));
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery));
}

TEST_P(EachFunctionTest, StartsAnAbsentServerThatCanBeStarted)
{
    MakeServerActivatable();
    GetWhetherKivDisabled();
    ForgetTrafficOnly();

    function_.call();

    const Lines expected =
        function_.first + Lines{StartLine(frame_), kAbsentLine, kNoIdLine, LaunchLine(frame_), kEnter, kEnter};
    Lines lines = platform_log::OfTestThread();
    ASSERT_GE(lines.size(), expected.size());
    lines.resize(expected.size());
    EXPECT_EQ(lines, expected);
    Lines calls = control_.Methods();
    ASSERT_GE(calls.size(), 3U);
    calls.resize(3);
    EXPECT_THAT(calls, ElementsAre("check_dbus_connection", "check_dbus_connection", method_));
}

INSTANTIATE_TEST_SUITE_P(Functions, EachFunctionTest, ::testing::ValuesIn(kFunctions), NameOf());

// --- The server comes and goes ---

TEST_F(OfflineCallFrameTest, AnActivatableServerIsStartedByTheSecondAttempt)
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
    control_.SetFault("check_dbus_connection", kRefusal);

    EXPECT_EQ(StopNetworkSpeaker(1), -1);

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), IdQuery(), kOwnerQuery, IdQuery()));
    const std::string refused = RefusedLine("check_dbus_connection");
    ExpectLog(
        PrologueLines("StopNetworkSpeaker") + refused + kNoIdLine + LaunchLine("StopNetworkSpeaker") + kEnter +
        refused + kNoIdLine + kEnter + refused + kNoIdLine + GivenUpLine("StopNetworkSpeaker"));
}

TEST_F(OfflineCallFrameTest, AServerThatCannotBeStartedIsAnError)
{
    bus_.WriteService({kServerName, {"/bin/false"}});
    EXPECT_EQ(StopNetworkSpeaker(9), -1);
    EXPECT_EQ(platform_log::Count(GivenUpLine("StopNetworkSpeaker")), 1U);
}

TEST_F(CallFrameTest, AServerThatComesBackIsUsedAgain)
{
    KillServer();
    EXPECT_EQ(StopNetworkSpeaker(1), -1);
    StartServer();
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
}

TEST_F(CallFrameTest, AServerThatDiesInTheCallIsAFailedCall)
{
    control_.SetFault("StopNetworkSpeaker", kDeath);

    EXPECT_EQ(StopNetworkSpeaker(1), -1);

    ExpectLog(
        PrologueLines("StopNetworkSpeaker") + "M StopNetworkSpeaker: [NAM_API] STOP, nStopType[1]" + kEnter +
        DiedLine("StopNetworkSpeaker") + MethodErrorLine("StopNetworkSpeaker"));
}

TEST_F(CallFrameTest, AServerThatGoesBetweenTheTwoOwnerQueriesIsAFailedCall)
{
    // The server dies after it has answered the id, so at the second query its name has no owner.
    AtLine("M StopNetworkSpeaker: [NAM_API] STOP, nStopType[1]", [&] { KillServer(); });

    EXPECT_EQ(StopNetworkSpeaker(1), -1);

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery));
    ExpectLog(
        PrologueLines("StopNetworkSpeaker") + "M StopNetworkSpeaker: [NAM_API] STOP, nStopType[1]" + kAbsentLine +
        MethodErrorLine("StopNetworkSpeaker"));
}

// --- Threads ---

TEST_F(OfflineCallFrameTest, AnyThreadMayCallAtOnce)
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
        EXPECT_EQ(Await("a thread's calls", wrong), 0);
    }
}

TEST_F(CallFrameTest, ASlowCallHoldsUpNobody)
{
    // The call gets no answer, so it lasts as long as a call can.
    control_.SetFault("DisableSurround", "{'silent': <true>}");
    auto slow = std::async(std::launch::async, [] { return DisableSurround(); });
    WaitUntil("the server to have the slow call", [this] {
        const Lines methods = control_.Methods();
        return !methods.empty() && methods.back() == "DisableSurround";
    });

    // On a busy machine, it may end before all of these calls have been made. If they waited for it, only one would be
    // made.
    int calls = 0;
    while (calls < 20 && slow.wait_for(std::chrono::seconds(0)) == std::future_status::timeout) {
        EXPECT_EQ(StopNetworkSpeaker(calls), calls);
        control_.SendEvent(0x1234, {});
        ++calls;
    }
    EXPECT_GT(calls, 1);
    EXPECT_EQ(Await("the slow call to end", slow), -1);
}

} // namespace
} // namespace call_frame_test
