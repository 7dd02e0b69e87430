#include "contract/BytesQueryTest.h"
#include "unit/Failures.h"

#include <ostream>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr int kIp = 0x0700000a; // 10.0.0.7
const unsigned char kBytes[24] = {};

int SpeakerLists()
{
    std::vector<STNetSpkListInfo> list(2);
    const int result = GetNetSpkListInfo(list);
    EXPECT_THAT(list, IsEmpty());
    return result;
}

int SpeakerNodes()
{
    std::vector<CNetSpkNodeInfo> list(2);
    const int result = GetNetSpkNodeList(list);
    EXPECT_THAT(list, IsEmpty());
    return result;
}

class ApiFailureTest : public ApiTest {
protected:
    ~ApiFailureTest() override
    {
        for (Failure* const failure : {&g_calloc, &g_variant, &g_messages, &g_replies}) {
            EXPECT_FALSE(failure->IsArmed());
        }
    }

    // Returns the function's own lines in the form "E text", without its name.
    static Lines OwnTexts(const std::string& function)
    {
        Lines lines = Own(function);
        for (std::string& line : lines) {
            line.erase(1, function.size() + 2);
        }
        return lines;
    }
};

// --- A call that is not sent, and one that has no reply ---

struct Function {
    std::string name;
    std::function<int()> call;
    Lines before;    // its lines before the call
    Outcome notSent; // the server's name has lost its owner
    Outcome noReply; // there is neither a reply nor an error
    std::string logger = name;

    friend void PrintTo(const Function& function, std::ostream* out) { *out << function.name; }
};

const std::string kCallError = "E [NAM_API] MethodCall Error";
const std::string kNoValue = "E param_out is NULL";
const std::string kNoUiMode = "E [NAM_API] Cannot get TavrinUIMode from NAM, return NETSPKSETTING_SURROUND";
const std::string kNoSettingMode =
    "E [NAM_API] Cannot get speakersystem mode from NAM, just return default value(NETSPKSETTING_MULTIROOM)";
const std::string kNotMultiroom = "E [NAM_API] Not support NETSPKSETTING_MULTIROOM, return NETSPKSETTING_SURROUND";

// A function that returns nothing, and logs a line before the call.
Function Silent(
    const std::string& name, const std::string& before, const std::function<void()>& call,
    const std::string& failed = kCallError)
{
    return {name, [call] { return call(), 0; }, {before}, {0, {failed}}, {0, {}}};
}

Function Step(const std::string& name, void (*step)(const unsigned char*, int))
{
    const std::string before = "I [NAM_API] Mac[" + kMacLogged + "], IP[10.0.0.7]";
    return {name, [step] { return step(kMac, kIp), 0; }, {before}, {0, {kCallError}}, {0, {}}, "m_SetSpkVolume"};
}

Function OfList(const std::string& name, void (*call)(const std::vector<STNetSpkConfig>&))
{
    return {
        name,
        [call] { return call(std::vector<STNetSpkConfig>(1)), 0; },
        {"I [NAM_API] Speaker[0]: MAC[00:00:00:00:00:00] CONFIG[0]"},
        {0, {"E [NAM_API] MethodCall(" + name + ") Error", "I free"}},
        {0, {"I free"}},
        "TransformNetSpkList"};
}

// A function that logs the server's answer, and has this line if there is none.
Function
Answered(const std::string& name, const std::function<int()>& call, const Lines& before, const std::string& answer)
{
    return {name, call, before, {-1, {kCallError, answer}}, {-1, {answer}}};
}

Function ById(const std::string& name, const std::function<int()>& call)
{
    return {name, call, {}, {0, {"E [NAM_API] MethodCall(" + name + ") Error"}}, {-1, {"I [NAM_API] result[-1]"}}};
}

Function MinusOne(const std::string& name, const std::function<int()>& call)
{
    return {name, call, {}, {-1, {kCallError}}, {-1, {}}};
}

Function Flag(const std::string& name, bool (*call)(), const Lines& before = {})
{
    const auto flag = [call] { return static_cast<int>(call()); };
    return {name, flag, before, {0, {"E MethodCall Error"}}, {0, {"I b" + name + "[0]"}}};
}

int ConnectionType()
{
    std::vector<STNetSpkConfig> list(1);
    return GetSpksConnectionType(&list);
}

const Function kFunctions[] = {
    // Connecting speakers
    Answered(
        "ConnectNetworkSpeakerByMobile", [] { return ConnectNetworkSpeakerByMobile(kBytes, 3); }, {},
        "I return value[-1]"),
    ById("Vireon_StartNetworkSpeakerByID", [] { return Vireon_StartNetworkSpeakerByID("ABCDE", 1, 2, 3); }),
    ById("StartNetworkSpeakerByID", [] { return StartNetworkSpeakerByID(1, 2, 3); }),
    ById("GetSpksConnectionTypeByID", [] { return GetSpksConnectionTypeByID(1); }),
    {"GetSpksConnectionType",
     ConnectionType,
     {},
     {-1, {"E [NAM_API] MethodCall Error, time(...)"}},
     {-1, {"I [NAM_API] result[-1]"}}},
    Answered(
        "AutoConnectNewSpeakers", [] { return AutoConnectNewSpeakers(kBytes, 2); }, {}, "I [NAM_API] nRet[-1]"),
    Answered(
        "AutoConnectNewSpeakersForOutdoor", [] { return AutoConnectNewSpeakersForOutdoor(kBytes, 2); },
        {"I AutoConnectNewSpeakersForOutdoor"}, "I [NAM_API] nRet[-1]"),
    MinusOne("ConnectToSpeakerForInfraLessSetup", [] { return ConnectToSpeakerForInfraLessSetup(1); }),
    MinusOne("StartNetworkSpeakerGroupByMobile", [] { return StartNetworkSpeakerGroupByMobile(1); }),

    // Lists
    {"GetActiveNetSpkInfo", UnansweredActiveSpeakers, {}, {-1, {kCallError}}, {0, {kNoValue}}},
    {"GetNetSpkListInfo", SpeakerLists, {}, {-1, {kCallError}}, {0, {kNoValue}}},
    {"GetNetSpkNodeList",
     SpeakerNodes,
     {"I GetNetSpkNodeList"},
     {-1, {kCallError, "I [NAM_API] Speaker Size[-1]"}},
     {0, {kNoValue, "I [NAM_API] Speaker Size[0]"}}},
    {"GetNetSpkListInfoNumber",
     GetNetSpkListInfoNumber,
     {},
     {-1, {kCallError, "I GetNetSpkListInfoNumber nRetV=[-1]"}},
     {0, {"I GetNetSpkListInfoNumber nRetV=[0]"}}},

    // Choosing the multi-room link
    Flag("CanCancelTavrin", CanCancelTavrin),
    Flag("PreSelectTavrin", PreSelectTavrin),
    Flag("CanSelectTavrin", CanSelectTavrin, {"D Enter"}),

    // Sound modes
    Silent(
        "SetSoundbarSoundMode", "D [NAM_API] Mac[" + kMacLogged + "], nDataLen[3]",
        [] { SetSoundbarSoundMode(kMac, kIp, kBytes, 3); }),
    {"GetSoundbarSoundMode", UnansweredSoundMode, {}, {-1, {kCallError}}, {0, {kNoValue}}},
    {"GetSoundbarDeviceInfo", UnansweredDeviceInfo, {}, {-1, {kCallError}}, {0, {kNoValue}}},
    Silent(
        "SetSoundbarSupportSoundMode", "D [NAM_API] Mac[" + kMacLogged + "], nSupportedOrNot[1]",
        [] { SetSoundbarSupportSoundMode(kMac, kIp, 1); }),
    {"GetSoundbarProtocolVersion",
     UnansweredProtocolVersion,
     {"D [NAM_API] Enter"},
     {-1, {kCallError}},
     {-1, {"E pTuple is NULL"}}},
    Silent("IsSoundbarSupportSoundMode", "D [NAM_API] Enter", [] { EXPECT_FALSE(IsSoundbarSupportSoundMode(kMac)); }),

    // Names and volumes
    Silent(
        "SetNetSpkName", "D [NAM_API] Mac[" + kMacLogged + "], SpkName[den], strlen(3)",
        [] { SetNetSpkName(kMac, kIp, "den"); }),
    Silent("SetNetSpkVolume", "I [NAM_API] Enter", [] { SetNetSpkVolume(kMac, kIp, 1); }),
    Silent(
        "GetNetSpkVolume", "D [NAM_API] Enter", [] { GetNetSpkVolume(kMac, kIp); }, "E MethodCall Error"),
    Step("IncreaseNetSpkVolume", IncreaseNetSpkVolume),
    Step("DecreaseNetSpkVolume", DecreaseNetSpkVolume),
    Step("ResetNetSpkVolume", ResetNetSpkVolume),
    {"ResetAllNetSpkVolume",
     [] { return ResetAllNetSpkVolume(), 0; },
     {"I [NAM_API] Enter"},
     {0, {kCallError}},
     {0, {"I ResetAllNetSpkVolume done"}}},
    OfList("IncreaseNetSpkVolumeList", IncreaseNetSpkVolumeList),
    OfList("DecreaseNetSpkVolumeList", DecreaseNetSpkVolumeList),
    OfList("ResetNetSpkVolumeList", ResetNetSpkVolumeList),
    OfList("GetNetSpkVolumeList", GetNetSpkVolumeList),

    // Setting modes
    MinusOne("SetTavrinUIMode", [] { return SetTavrinUIMode(80); }),
    {"GetTavrinUIMode", GetTavrinUIMode, {}, {80, {kCallError, kNoUiMode}}, {80, {kNoUiMode}}},
    {"GetNetSpkSettingMode",
     GetNetSpkSettingMode,
     {},
     {80, {kCallError, kNoSettingMode, kNotMultiroom}},
     {80, {kNoSettingMode, kNotMultiroom}}},
    Flag("CanEnterTavrinSettings", CanEnterTavrinSettings),
    {"FlagEnableNetworkSpeaker",
     [] { return static_cast<int>(FlagEnableNetworkSpeaker()); },
     {"D [NAM_API] Enter"},
     {0, {kCallError}},
     {0, {"I [NAM_API] bEnableNetworkSpeaker[0]"}}},
};

class UnansweredTest : public ApiFailureTest, public ::testing::WithParamInterface<Function> {
protected:
    void Expect(const Outcome& outcome)
    {
        EXPECT_EQ(function_.call(), outcome.result);
        Lines lines = OwnTexts(function_.logger);
        for (std::string& line : lines) {
            if (const std::size_t time = line.find("time("); time != std::string::npos) {
                line.replace(time, std::string::npos, "time(...)");
            }
        }
        EXPECT_EQ(lines, function_.before + outcome.lines);
    }

    const Function& function_ = GetParam();
};

TEST_P(UnansweredTest, ACallThatIsNotSent)
{
    // The first query for the owner is part of reaching the server.
    g_messages.Arm("NameHasOwner", 1);
    Expect(function_.notSent);
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
}

TEST_P(UnansweredTest, ACallWithoutReplyAndWithoutError)
{
    g_replies.Arm(function_.name.c_str());
    Expect(function_.noReply);
}

INSTANTIATE_TEST_SUITE_P(Functions, UnansweredTest, ::testing::ValuesIn(kFunctions), NameOf());

TEST_F(ApiFailureTest, ThePlainArrayIsLeftAloneWithoutAReply)
{
    Guarded<unsigned char, sizeof(STNetSpkListInfo)> array;
    auto* const lists = reinterpret_cast<STNetSpkListInfo*>(array.Data());

    g_messages.Arm("NameHasOwner", 1);
    EXPECT_EQ(getNetSpkListInfo(lists), -1);
    g_variant.Arm("(ay)");
    EXPECT_EQ(getNetSpkListInfo(lists), -1);
    g_replies.Arm("GetNetSpkListInfo");
    EXPECT_EQ(getNetSpkListInfo(lists), 0);

    EXPECT_TRUE(array.IsUntouched());
}

// --- No memory for the payload ---

struct Allocation {
    std::string name;
    std::function<int()> call;
    int result;
    Lines lines;
    Lines sent = {};             // besides the queries for owner and id
    std::string function = name; // the function that logs

    friend void PrintTo(const Allocation& allocation, std::ostream* out) { *out << allocation.name; }
};

Allocation Start(const std::string& name, std::size_t speakers)
{
    const auto call = [speakers] {
        std::vector<STNetSpkConfig> list(speakers);
        return StartNetworkSpeaker(80, list, 0);
    };
    const Lines lines = {"M [NAM_API] START, nMode[80], nStartReason[0]", "E [NAM_API] calloc() fail"};
    return {name, call, -1, lines, {kOwnerQuery, "SetNetSpkSettingMode(80, 0)"}, "StartNetworkSpeaker"};
}

Allocation ConnectionTypes(const std::string& name, std::size_t speakers)
{
    const auto call = [speakers] {
        std::vector<STNetSpkConfig> list(speakers);
        return GetSpksConnectionType(&list);
    };
    return {name, call, 0, {"E [NAM_API] calloc() fail"}, {}, "GetSpksConnectionType"};
}

Allocation Volumes(const std::string& name, void (*call)(const std::vector<STNetSpkConfig>&), std::size_t speakers = 3)
{
    const auto ofList = [=] { return call(std::vector<STNetSpkConfig>(speakers)), 0; };
    const std::string line = "E [NAM_API] calloc(" + std::to_string(speakers) + "*86) fail";
    return {name, ofList, 0, {line}, {}, "TransformNetSpkList"};
}

const std::string kNoMac = "E calloc(NETSPK_MAC_LEN*sizeof(char)) fail";

// If no bytes are asked for, calloc() may return null.
const Allocation kAllocations[] = {
    Start("StartNetworkSpeaker", 3),
    Start("StartNoNetworkSpeaker", 0),
    {"ConnectNetworkSpeakerByMobile",
     [] { return ConnectNetworkSpeakerByMobile(kBytes, 3); },
     -1,
     {"E (pParam == NULL) return"}},
    ConnectionTypes("GetSpksConnectionType", 3),
    ConnectionTypes("GetConnectionTypeOfNone", 0),
    {"AutoConnectNewSpeakers",
     [] { return AutoConnectNewSpeakers(kBytes, 2); },
     -1,
     {"E (pNewSpeakersMacList == NULL) return"}},
    {"AutoConnectNewSpeakersForOutdoor",
     [] { return AutoConnectNewSpeakersForOutdoor(kBytes, 2); },
     -1,
     {"I AutoConnectNewSpeakersForOutdoor", "E (pNewSpeakersMacList == NULL) return"}},
    {"SetSoundbarSoundMode",
     [] { return SetSoundbarSoundMode(kMac, kIp, kBytes, 3), 0; },
     0,
     {"D [NAM_API] Mac[" + kMacLogged + "], nDataLen[3]", "E calloc(NETSPK_MAC_LEN+NETSPK_IP_LEN+nDataLen[3]) fail"}},
    {"SetSoundbarSupportSoundMode",
     [] { return SetSoundbarSupportSoundMode(kMac, kIp, 1), 0; },
     0,
     {"D [NAM_API] Mac[" + kMacLogged + "], nSupportedOrNot[1]",
      "E calloc(NETSPK_MAC_LEN+NETSPK_IP_LEN+sizeof(int)) fail"}},
    {"GetSoundbarProtocolVersion", UnansweredProtocolVersion, -1, {"D [NAM_API] Enter", kNoMac}},
    {"IsSoundbarSupportSoundMode",
     [] { return static_cast<int>(IsSoundbarSupportSoundMode(kMac)); },
     0,
     {"D [NAM_API] Enter", kNoMac}},
    Volumes("IncreaseNetSpkVolumeList", IncreaseNetSpkVolumeList),
    Volumes("DecreaseNetSpkVolumeList", DecreaseNetSpkVolumeList),
    Volumes("ResetNetSpkVolumeList", ResetNetSpkVolumeList),
    Volumes("GetNetSpkVolumeList", GetNetSpkVolumeList),
    Volumes("GetVolumeListOfNone", GetNetSpkVolumeList, 0),
};

class NoMemoryTest : public ApiFailureTest, public ::testing::WithParamInterface<Allocation> {};

TEST_P(NoMemoryTest, ThePayloadIsNotSent)
{
    const Allocation& allocation = GetParam();
    g_calloc.Arm();

    EXPECT_EQ(allocation.call(), allocation.result);

    EXPECT_EQ(Sent(), (Lines{kOwnerQuery, IdQuery()} + allocation.sent));
    EXPECT_EQ(OwnTexts(allocation.function), allocation.lines);
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
}

INSTANTIATE_TEST_SUITE_P(Functions, NoMemoryTest, ::testing::ValuesIn(kAllocations), NameOf());

// --- No place for the reply ---

struct Place {
    std::string name;
    const char* format; // the format of the preset
    std::function<int()> call;
    int result;
    Lines lines;

    friend void PrintTo(const Place& place, std::ostream* out) { *out << place.name; }
};

// These functions end without a call.
const Place kNeededPlaces[] = {
    {"GetActiveNetSpkInfo", "(ay)", UnansweredActiveSpeakers, -1, {"E (param_out == NULL) return"}},
    {"GetNetSpkListInfo", "(ay)", SpeakerLists, -1, {"E (param_out_val == NULL) return"}},
    {"GetNetSpkNodeList", "(ay)", SpeakerNodes, -1, {"I GetNetSpkNodeList", "E (param_out_value == NULL) return"}},
    {"GetSoundbarSoundMode", "(ay)", UnansweredSoundMode, -1, {"E (param_out_val == NULL) return"}},
    {"GetSoundbarProtocolVersion",
     "(ay)",
     UnansweredProtocolVersion,
     -1,
     {"D [NAM_API] Enter", "E [NAM_API] param_out is NULL"}},
    {"IsSoundbarSupportSoundMode",
     "(b)",
     [] { return static_cast<int>(IsSoundbarSupportSoundMode(kMac)); },
     0,
     {"D [NAM_API] Enter", "E [NAM_API] param_out is NULL"}},
};

class NeededPlaceTest : public ApiFailureTest, public ::testing::WithParamInterface<Place> {};

TEST_P(NeededPlaceTest, NothingIsSent)
{
    const Place& place = GetParam();
    control_.SetFault("IsSoundbarSupportSoundMode", "{'reply': <(true,)>}");
    g_variant.Arm(place.format);

    EXPECT_EQ(place.call(), place.result);

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
    EXPECT_EQ(OwnTexts(place.name), place.lines);
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
}

INSTANTIATE_TEST_SUITE_P(Functions, NeededPlaceTest, ::testing::ValuesIn(kNeededPlaces), NameOf());

// These functions go on without the preset.
Place Unneeded(const std::string& name, bool (*call)(), const Lines& lines)
{
    return {name, "(b)", [call] { return static_cast<int>(call()); }, 1, lines};
}

const Place kUnneededPlaces[] = {
    Unneeded("CanCancelTavrin", CanCancelTavrin, {kNoValue, "I bCanCancelTavrin[1]"}),
    Unneeded("PreSelectTavrin", PreSelectTavrin, {kNoValue, "I bPreSelectTavrin[1]"}),
    Unneeded("CanSelectTavrin", CanSelectTavrin, {"D Enter", kNoValue, "I bCanSelectTavrin[1]"}),
    Unneeded("CanEnterTavrinSettings", CanEnterTavrinSettings, {kNoValue, "I bCanEnterTavrinSettings[1]"}),
    Unneeded(
        "FlagEnableNetworkSpeaker", FlagEnableNetworkSpeaker,
        {"D [NAM_API] Enter", "E [NAM_API] param_out is NULL", "I [NAM_API] bEnableNetworkSpeaker[1]"}),
};

class UnneededPlaceTest : public ApiFailureTest, public ::testing::WithParamInterface<Place> {};

TEST_P(UnneededPlaceTest, TheAnswerIsTheServers)
{
    const Place& place = GetParam();
    control_.SetFault(place.name, "{'reply': <(true,)>}");
    g_variant.Arm(place.format);

    EXPECT_EQ(place.call(), place.result);

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery, place.name + "()"));
    EXPECT_EQ(OwnTexts(place.name), place.lines);
}

INSTANTIATE_TEST_SUITE_P(Functions, UnneededPlaceTest, ::testing::ValuesIn(kUnneededPlaces), NameOf());

TEST_F(ApiFailureTest, TheDeviceInfoDoesNotNeedAPlaceForItsReply)
{
    std::vector<unsigned char> reply(14);
    reply[10] = 7;
    control_.SetReply("GetSoundbarDeviceInfo", reply);
    unsigned char identity[10];
    g_variant.Arm("(ay)");
    EXPECT_EQ(GetSoundbarDeviceInfo(identity), 7);
}

// There is neither a preset nor a reply.
TEST_F(ApiFailureTest, TheDeviceInfoSaysThatThePlaceIsEmptyWhereNothingIsSent)
{
    g_variant.Arm("(ay)");
    g_messages.Arm("NameHasOwner", 1);
    EXPECT_EQ(UnansweredDeviceInfo(), -1);
    EXPECT_THAT(OwnTexts("GetSoundbarDeviceInfo"), ElementsAre(kCallError, kNoValue));
}

} // namespace
