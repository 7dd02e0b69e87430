#include "contract/ApiTest.h"
#include "unit/Failures.h"

#include <ostream>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr int kIp = 0x0700000a; // 10.0.0.7
const unsigned char kBytes[24] = {};

int ActiveSpeakers()
{
    char name[NETSPK_LIST_NAME_LEN];
    char type[NETSPK_SPEAKER_TYPE_LEN + 1];
    std::vector<spk_info_s> list;
    return GetActiveNetSpkInfo(name, type, list);
}

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

int SoundMode()
{
    Guarded<unsigned char, 10> identity;
    Guarded<unsigned char, 20> data;
    const int result = GetSoundbarSoundMode(identity.Data(), data.Data());
    EXPECT_TRUE(identity.IsUntouched() && data.IsUntouched());
    return result;
}

int DeviceInfo()
{
    Guarded<unsigned char, 10> identity;
    const int result = GetSoundbarDeviceInfo(identity.Data());
    EXPECT_TRUE(identity.IsUntouched());
    return result;
}

int ProtocolVersion()
{
    Guarded<unsigned char, 20> version;
    const int result = GetSoundbarProtocolVersion(kMac, version.Data(), 20);
    EXPECT_TRUE(version.IsUntouched());
    return result;
}

// The result of a function, and its own lines after a failure: "E text", without the name of the function.
struct Outcome {
    int result;
    Lines lines;
};

class ApiFailureTest : public ApiTest {
protected:
    ~ApiFailureTest() override
    {
        for (Failure* const failure : {&g_calloc, &g_variant, &g_messages, &g_replies}) {
            EXPECT_FALSE(failure->IsArmed());
        }
    }

    // Returns the function's own lines in the same form.
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
    const char* name;
    int (*call)();
    Lines before;    // its lines before the call
    Outcome notSent; // the server's name has lost its owner
    Outcome noReply; // there is neither a reply nor an error
    const char* logger = name;
    const char* method = name;
};

void PrintTo(const Function& function, std::ostream* out)
{
    *out << function.name;
}

const std::string kCallError = "E [NAM_API] MethodCall Error";
const std::string kNoValue = "E param_out is NULL";
const std::string kMacLine = "I [NAM_API] Mac[" + kMacLogged + "], IP[10.0.0.7]";
const Lines kSpeakerLine = {"I [NAM_API] Speaker[0]: MAC[00:00:00:00:00:00] CONFIG[0]"};
const std::string kNoUiMode = "E [NAM_API] Cannot get TavrinUIMode from NAM, return NETSPKSETTING_SURROUND";
const std::string kNoSettingMode =
    "E [NAM_API] Cannot get speakersystem mode from NAM, just return default value(NETSPKSETTING_MULTIROOM)";
const std::string kNotMultiroom = "E [NAM_API] Not support NETSPKSETTING_MULTIROOM, return NETSPKSETTING_SURROUND";

const Function kFunctions[] = {
    // Connecting speakers
    {"ConnectNetworkSpeakerByMobile",
     [] { return ConnectNetworkSpeakerByMobile(kBytes, 3); },
     {},
     {-1, {kCallError, "I return value[-1]"}},
     {-1, {"I return value[-1]"}}},
    {"Vireon_StartNetworkSpeakerByID",
     [] { return Vireon_StartNetworkSpeakerByID("ABCDE", 1, 2, 3); },
     {},
     {0, {"E [NAM_API] MethodCall(Vireon_StartNetworkSpeakerByID) Error"}},
     {-1, {"I [NAM_API] result[-1]"}}},
    {"StartNetworkSpeakerByID",
     [] { return StartNetworkSpeakerByID(1, 2, 3); },
     {},
     {0, {"E [NAM_API] MethodCall(StartNetworkSpeakerByID) Error"}},
     {-1, {"I [NAM_API] result[-1]"}}},
    {"GetSpksConnectionTypeByID",
     [] { return GetSpksConnectionTypeByID(1); },
     {},
     {0, {"E [NAM_API] MethodCall(GetSpksConnectionTypeByID) Error"}},
     {-1, {"I [NAM_API] result[-1]"}}},
    {"GetSpksConnectionType",
     [] {
         std::vector<STNetSpkConfig> list(1);
         return GetSpksConnectionType(&list);
     },
     {},
     {-1, {"E [NAM_API] MethodCall Error, time(...)"}},
     {-1, {"I [NAM_API] result[-1]"}}},
    {"AutoConnectNewSpeakers",
     [] { return AutoConnectNewSpeakers(kBytes, 2); },
     {},
     {-1, {kCallError, "I [NAM_API] nRet[-1]"}},
     {-1, {"I [NAM_API] nRet[-1]"}}},
    {"AutoConnectNewSpeakersForOutdoor",
     [] { return AutoConnectNewSpeakersForOutdoor(kBytes, 2); },
     {"I AutoConnectNewSpeakersForOutdoor"},
     {-1, {kCallError, "I [NAM_API] nRet[-1]"}},
     {-1, {"I [NAM_API] nRet[-1]"}}},
    {"ConnectToSpeakerForInfraLessSetup",
     [] { return ConnectToSpeakerForInfraLessSetup(1); },
     {},
     {-1, {kCallError}},
     {-1, {}}},
    {"StartNetworkSpeakerGroupByMobile",
     [] { return StartNetworkSpeakerGroupByMobile(1); },
     {},
     {-1, {kCallError}},
     {-1, {}}},

    // Lists
    {"GetActiveNetSpkInfo", ActiveSpeakers, {}, {-1, {kCallError}}, {0, {kNoValue}}},
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
    {"CanCancelTavrin",
     [] { return CanCancelTavrin() ? 1 : 0; },
     {},
     {0, {"E MethodCall Error"}},
     {0, {"I bCanCancelTavrin[0]"}}},
    {"PreSelectTavrin",
     [] { return PreSelectTavrin() ? 1 : 0; },
     {},
     {0, {"E MethodCall Error"}},
     {0, {"I bPreSelectTavrin[0]"}}},
    {"CanSelectTavrin",
     [] { return CanSelectTavrin() ? 1 : 0; },
     {"D Enter"},
     {0, {"E MethodCall Error"}},
     {0, {"I bCanSelectTavrin[0]"}}},

    // Sound modes
    {"SetSoundbarSoundMode",
     [] { return SetSoundbarSoundMode(kMac, kIp, kBytes, 3), 0; },
     {"D [NAM_API] Mac[" + kMacLogged + "], nDataLen[3]"},
     {0, {kCallError}},
     {0, {}}},
    {"GetSoundbarSoundMode", SoundMode, {}, {-1, {kCallError}}, {0, {kNoValue}}},
    {"GetSoundbarDeviceInfo", DeviceInfo, {}, {-1, {kCallError}}, {0, {kNoValue}}},
    {"SetSoundbarSupportSoundMode",
     [] { return SetSoundbarSupportSoundMode(kMac, kIp, 1), 0; },
     {"D [NAM_API] Mac[" + kMacLogged + "], nSupportedOrNot[1]"},
     {0, {kCallError}},
     {0, {}}},
    {"GetSoundbarProtocolVersion",
     ProtocolVersion,
     {"D [NAM_API] Enter"},
     {-1, {kCallError}},
     {-1, {"E pTuple is NULL"}}},
    {"IsSoundbarSupportSoundMode",
     [] { return IsSoundbarSupportSoundMode(kMac) ? 1 : 0; },
     {"D [NAM_API] Enter"},
     {0, {kCallError}},
     {0, {}}},

    // Names and volumes
    {"SetNetSpkName",
     [] { return SetNetSpkName(kMac, kIp, "den"), 0; },
     {"D [NAM_API] Mac[" + kMacLogged + "], SpkName[den], strlen(3)"},
     {0, {kCallError}},
     {0, {}}},
    {"SetNetSpkVolume",
     [] { return SetNetSpkVolume(kMac, kIp, 1), 0; },
     {"I [NAM_API] Enter"},
     {0, {kCallError}},
     {0, {}}},
    {"GetNetSpkVolume",
     [] { return GetNetSpkVolume(kMac, kIp), 0; },
     {"D [NAM_API] Enter"},
     {0, {"E MethodCall Error"}},
     {0, {}}},
    {"IncreaseNetSpkVolume",
     [] { return IncreaseNetSpkVolume(kMac, kIp), 0; },
     {kMacLine},
     {0, {kCallError}},
     {0, {}},
     "m_SetSpkVolume"},
    {"DecreaseNetSpkVolume",
     [] { return DecreaseNetSpkVolume(kMac, kIp), 0; },
     {kMacLine},
     {0, {kCallError}},
     {0, {}},
     "m_SetSpkVolume"},
    {"ResetNetSpkVolume",
     [] { return ResetNetSpkVolume(kMac, kIp), 0; },
     {kMacLine},
     {0, {kCallError}},
     {0, {}},
     "m_SetSpkVolume"},
    {"ResetAllNetSpkVolume",
     [] { return ResetAllNetSpkVolume(), 0; },
     {"I [NAM_API] Enter"},
     {0, {kCallError}},
     {0, {"I ResetAllNetSpkVolume done"}}},
    {"IncreaseNetSpkVolumeList",
     [] { return IncreaseNetSpkVolumeList(std::vector<STNetSpkConfig>(1)), 0; },
     kSpeakerLine,
     {0, {"E [NAM_API] MethodCall(IncreaseNetSpkVolumeList) Error", "I free"}},
     {0, {"I free"}},
     "TransformNetSpkList"},
    {"DecreaseNetSpkVolumeList",
     [] { return DecreaseNetSpkVolumeList(std::vector<STNetSpkConfig>(1)), 0; },
     kSpeakerLine,
     {0, {"E [NAM_API] MethodCall(DecreaseNetSpkVolumeList) Error", "I free"}},
     {0, {"I free"}},
     "TransformNetSpkList"},
    {"ResetNetSpkVolumeList",
     [] { return ResetNetSpkVolumeList(std::vector<STNetSpkConfig>(1)), 0; },
     kSpeakerLine,
     {0, {"E [NAM_API] MethodCall(ResetNetSpkVolumeList) Error", "I free"}},
     {0, {"I free"}},
     "TransformNetSpkList"},
    {"GetNetSpkVolumeList",
     [] { return GetNetSpkVolumeList(std::vector<STNetSpkConfig>(1)), 0; },
     kSpeakerLine,
     {0, {"E [NAM_API] MethodCall(GetNetSpkVolumeList) Error", "I free"}},
     {0, {"I free"}},
     "TransformNetSpkList"},

    // Setting modes
    {"SetTavrinUIMode", [] { return SetTavrinUIMode(80); }, {}, {-1, {kCallError}}, {-1, {}}},
    {"GetTavrinUIMode", GetTavrinUIMode, {}, {80, {kCallError, kNoUiMode}}, {80, {kNoUiMode}}},
    {"GetNetSpkSettingMode",
     GetNetSpkSettingMode,
     {},
     {80, {kCallError, kNoSettingMode, kNotMultiroom}},
     {80, {kNoSettingMode, kNotMultiroom}}},
    {"CanEnterTavrinSettings",
     [] { return CanEnterTavrinSettings() ? 1 : 0; },
     {},
     {0, {"E MethodCall Error"}},
     {0, {"I bCanEnterTavrinSettings[0]"}}},
    {"FlagEnableNetworkSpeaker",
     [] { return FlagEnableNetworkSpeaker() ? 1 : 0; },
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
    g_replies.Arm(function_.method);
    Expect(function_.noReply);
}

INSTANTIATE_TEST_SUITE_P(Functions, UnansweredTest, ::testing::ValuesIn(kFunctions), [](const auto& function) {
    return std::string(function.param.name);
});

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
    const char* name;
    const char* function; // the function that logs
    int (*call)();
    Lines sent; // besides the queries for owner and id
    Outcome outcome;
};

void PrintTo(const Allocation& allocation, std::ostream* out)
{
    *out << allocation.name;
}

template <std::size_t count>
int StartSpeakers()
{
    std::vector<STNetSpkConfig> list(count);
    return StartNetworkSpeaker(80, list, 0);
}

template <std::size_t count>
int ConnectionType()
{
    std::vector<STNetSpkConfig> list(count);
    return GetSpksConnectionType(&list);
}

template <void (*Function)(const std::vector<STNetSpkConfig>&), std::size_t count>
int VolumeList()
{
    Function(std::vector<STNetSpkConfig>(count));
    return 0;
}

// If no bytes are asked for, calloc() may return null.
const Allocation kAllocations[] = {
    {"StartNetworkSpeaker",
     "StartNetworkSpeaker",
     StartSpeakers<3>,
     {kOwnerQuery, "SetNetSpkSettingMode(80, 0)"},
     {-1, {"M [NAM_API] START, nMode[80], nStartReason[0]", "E [NAM_API] calloc() fail"}}},
    {"StartNoNetworkSpeaker",
     "StartNetworkSpeaker",
     StartSpeakers<0>,
     {kOwnerQuery, "SetNetSpkSettingMode(80, 0)"},
     {-1, {"M [NAM_API] START, nMode[80], nStartReason[0]", "E [NAM_API] calloc() fail"}}},
    {"ConnectNetworkSpeakerByMobile",
     "ConnectNetworkSpeakerByMobile",
     [] { return ConnectNetworkSpeakerByMobile(kBytes, 3); },
     {},
     {-1, {"E (pParam == NULL) return"}}},
    {"GetSpksConnectionType", "GetSpksConnectionType", ConnectionType<3>, {}, {0, {"E [NAM_API] calloc() fail"}}},
    {"GetConnectionTypeOfNone", "GetSpksConnectionType", ConnectionType<0>, {}, {0, {"E [NAM_API] calloc() fail"}}},
    {"AutoConnectNewSpeakers",
     "AutoConnectNewSpeakers",
     [] { return AutoConnectNewSpeakers(kBytes, 2); },
     {},
     {-1, {"E (pNewSpeakersMacList == NULL) return"}}},
    {"AutoConnectNewSpeakersForOutdoor",
     "AutoConnectNewSpeakersForOutdoor",
     [] { return AutoConnectNewSpeakersForOutdoor(kBytes, 2); },
     {},
     {-1, {"I AutoConnectNewSpeakersForOutdoor", "E (pNewSpeakersMacList == NULL) return"}}},
    {"SetSoundbarSoundMode",
     "SetSoundbarSoundMode",
     [] { return SetSoundbarSoundMode(kMac, kIp, kBytes, 3), 0; },
     {},
     {0,
      {"D [NAM_API] Mac[" + kMacLogged + "], nDataLen[3]", "E calloc(NETSPK_MAC_LEN+NETSPK_IP_LEN+nDataLen[3]) fail"}}},
    {"SetSoundbarSupportSoundMode",
     "SetSoundbarSupportSoundMode",
     [] { return SetSoundbarSupportSoundMode(kMac, kIp, 1), 0; },
     {},
     {0,
      {"D [NAM_API] Mac[" + kMacLogged + "], nSupportedOrNot[1]",
       "E calloc(NETSPK_MAC_LEN+NETSPK_IP_LEN+sizeof(int)) fail"}}},
    {"GetSoundbarProtocolVersion",
     "GetSoundbarProtocolVersion",
     ProtocolVersion,
     {},
     {-1, {"D [NAM_API] Enter", "E calloc(NETSPK_MAC_LEN*sizeof(char)) fail"}}},
    {"IsSoundbarSupportSoundMode",
     "IsSoundbarSupportSoundMode",
     [] { return IsSoundbarSupportSoundMode(kMac) ? 1 : 0; },
     {},
     {0, {"D [NAM_API] Enter", "E calloc(NETSPK_MAC_LEN*sizeof(char)) fail"}}},
    {"IncreaseNetSpkVolumeList",
     "TransformNetSpkList",
     VolumeList<IncreaseNetSpkVolumeList, 3>,
     {},
     {0, {"E [NAM_API] calloc(3*86) fail"}}},
    {"DecreaseNetSpkVolumeList",
     "TransformNetSpkList",
     VolumeList<DecreaseNetSpkVolumeList, 3>,
     {},
     {0, {"E [NAM_API] calloc(3*86) fail"}}},
    {"ResetNetSpkVolumeList",
     "TransformNetSpkList",
     VolumeList<ResetNetSpkVolumeList, 3>,
     {},
     {0, {"E [NAM_API] calloc(3*86) fail"}}},
    {"GetNetSpkVolumeList",
     "TransformNetSpkList",
     VolumeList<GetNetSpkVolumeList, 3>,
     {},
     {0, {"E [NAM_API] calloc(3*86) fail"}}},
    {"GetVolumeListOfNone",
     "TransformNetSpkList",
     VolumeList<GetNetSpkVolumeList, 0>,
     {},
     {0, {"E [NAM_API] calloc(0*86) fail"}}},
};

class NoMemoryTest : public ApiFailureTest, public ::testing::WithParamInterface<Allocation> {};

TEST_P(NoMemoryTest, ThePayloadIsNotSent)
{
    const Allocation& allocation = GetParam();
    g_calloc.Arm();

    EXPECT_EQ(allocation.call(), allocation.outcome.result);

    EXPECT_EQ(Sent(), (Lines{kOwnerQuery, IdQuery()} + allocation.sent));
    EXPECT_EQ(OwnTexts(allocation.function), allocation.outcome.lines);
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
}

INSTANTIATE_TEST_SUITE_P(Functions, NoMemoryTest, ::testing::ValuesIn(kAllocations), [](const auto& allocation) {
    return std::string(allocation.param.name);
});

// --- No place for the reply ---

struct Place {
    const char* name;
    const char* format; // the format of the preset
    int (*call)();
    Outcome outcome;
};

void PrintTo(const Place& place, std::ostream* out)
{
    *out << place.name;
}

// These functions end without a call.
const Place kNeededPlaces[] = {
    {"GetActiveNetSpkInfo", "(ay)", ActiveSpeakers, {-1, {"E (param_out == NULL) return"}}},
    {"GetNetSpkListInfo", "(ay)", SpeakerLists, {-1, {"E (param_out_val == NULL) return"}}},
    {"GetNetSpkNodeList", "(ay)", SpeakerNodes, {-1, {"I GetNetSpkNodeList", "E (param_out_value == NULL) return"}}},
    {"GetSoundbarSoundMode", "(ay)", SoundMode, {-1, {"E (param_out_val == NULL) return"}}},
    {"GetSoundbarProtocolVersion",
     "(ay)",
     ProtocolVersion,
     {-1, {"D [NAM_API] Enter", "E [NAM_API] param_out is NULL"}}},
    {"IsSoundbarSupportSoundMode",
     "(b)",
     [] { return IsSoundbarSupportSoundMode(kMac) ? 1 : 0; },
     {0, {"D [NAM_API] Enter", "E [NAM_API] param_out is NULL"}}},
};

class NeededPlaceTest : public ApiFailureTest, public ::testing::WithParamInterface<Place> {};

TEST_P(NeededPlaceTest, NothingIsSent)
{
    const Place& place = GetParam();
    control_.SetFault("IsSoundbarSupportSoundMode", "{'reply': <(true,)>}");
    g_variant.Arm(place.format);

    EXPECT_EQ(place.call(), place.outcome.result);

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
    EXPECT_EQ(OwnTexts(place.name), place.outcome.lines);
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
}

INSTANTIATE_TEST_SUITE_P(Functions, NeededPlaceTest, ::testing::ValuesIn(kNeededPlaces), [](const auto& place) {
    return std::string(place.param.name);
});

// These functions go on without the preset.
const Place kUnneededPlaces[] = {
    {"CanCancelTavrin", "(b)", [] { return CanCancelTavrin() ? 1 : 0; }, {1, {kNoValue, "I bCanCancelTavrin[1]"}}},
    {"PreSelectTavrin", "(b)", [] { return PreSelectTavrin() ? 1 : 0; }, {1, {kNoValue, "I bPreSelectTavrin[1]"}}},
    {"CanSelectTavrin",
     "(b)",
     [] { return CanSelectTavrin() ? 1 : 0; },
     {1, {"D Enter", kNoValue, "I bCanSelectTavrin[1]"}}},
    {"CanEnterTavrinSettings",
     "(b)",
     [] { return CanEnterTavrinSettings() ? 1 : 0; },
     {1, {kNoValue, "I bCanEnterTavrinSettings[1]"}}},
    {"FlagEnableNetworkSpeaker",
     "(b)",
     [] { return FlagEnableNetworkSpeaker() ? 1 : 0; },
     {1, {"D [NAM_API] Enter", "E [NAM_API] param_out is NULL", "I [NAM_API] bEnableNetworkSpeaker[1]"}}},
};

class UnneededPlaceTest : public ApiFailureTest, public ::testing::WithParamInterface<Place> {};

TEST_P(UnneededPlaceTest, TheAnswerIsTheServers)
{
    const Place& place = GetParam();
    control_.SetFault(place.name, "{'reply': <(true,)>}");
    g_variant.Arm(place.format);

    EXPECT_EQ(place.call(), place.outcome.result);

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery, std::string(place.name) + "()"));
    EXPECT_EQ(OwnTexts(place.name), place.outcome.lines);
}

INSTANTIATE_TEST_SUITE_P(Functions, UnneededPlaceTest, ::testing::ValuesIn(kUnneededPlaces), [](const auto& place) {
    return std::string(place.param.name);
});

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
    EXPECT_EQ(DeviceInfo(), -1);
    EXPECT_THAT(OwnTexts("GetSoundbarDeviceInfo"), ElementsAre(kCallError, kNoValue));
}

} // namespace
