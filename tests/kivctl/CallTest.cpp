#include "kivctl/KivctlTest.h"

#include <map>

namespace kiv::ctl::call_test {
namespace {

using CallTest = KivctlTest;

// The arguments of the functions that need any.
const std::map<std::string, Arguments> kArguments = {
    {"SubscribeNamServiceCallback", {"mine"}},
    {"UnsubscribeNamServiceCallback", {"mine"}},
    {"NodeRemoveFromWatcher", {"2"}},
    {"StartNetworkSpeaker", {kLeft}},
    {"ConnectNetworkSpeakerByMobile", {"00"}},
    {"Vireon_StartNetworkSpeakerByID", {"KIV01", "1", "2", "3"}},
    {"StartNetworkSpeakerByID", {"1", "2", "3"}},
    {"GetSpksConnectionTypeByID", {"1"}},
    {"GetSpksConnectionType", {kLeft}},
    {"AutoConnectNewSpeakers", {kLeft}},
    {"AutoConnectNewSpeakersForOutdoor", {kLeft}},
    {"ConnectToSpeakerForInfraLessSetup", {"1"}},
    {"StartNetworkSpeakerGroupByMobile", {"1"}},
    {"StartNetSpkTest", {kLeft}},
    {"StopNetSpkTest", {kLeft}},
    {"SetSoundbarSoundMode", {kLeft, "00"}},
    {"SetSoundbarSupportSoundMode", {kLeft, "yes"}},
    {"GetSoundbarProtocolVersion", {kLeft}},
    {"IsSoundbarSupportSoundMode", {kLeft}},
    {"SetNetSpkName", {kLeft, "Left"}},
    {"SetNetSpkVolume", {kLeft, "30"}},
    {"GetNetSpkVolume", {kLeft}},
    {"IncreaseNetSpkVolume", {kLeft}},
    {"DecreaseNetSpkVolume", {kLeft}},
    {"ResetNetSpkVolume", {kLeft}},
    {"IncreaseNetSpkVolumeList", {kLeft}},
    {"DecreaseNetSpkVolumeList", {kLeft}},
    {"ResetNetSpkVolumeList", {kLeft}},
    {"GetNetSpkVolumeList", {kLeft}},
    {"SetTavrinUIMode", {"surround"}},
};

// The results of the old entry points that do not return 0.
const std::map<std::string, std::string> kFixedResults = {
    {"get_size_of_spk_list_info_s", "1086"}, {"get_size_of_spk_info_s", "183"}, {"GetLastConnectSatIdx", "-1"}};

// Returns whether the log names the function, or the server got its call. getNetSpkListInfo calls another function.
bool WasCalled(const std::string& function, const std::string& log, const std::vector<std::string>& calls)
{
    const std::string name = function == "getNetSpkListInfo" ? "GetNetSpkListInfo" : function;
    return log.find(": " + name + '(') != std::string::npos || (!calls.empty() && calls.back().starts_with(name + '('));
}

bool IsOld(const std::string& function)
{
    return function.starts_with("SPK_") || kFixedResults.contains(function);
}

std::vector<std::string> FunctionsIn(const std::string& completions)
{
    std::vector<std::string> functions;
    for (const std::string& line : LinesOf(completions)) {
        if (!line.starts_with("--")) {
            functions.push_back(line.substr(0, line.find('\t')));
        }
    }
    return functions;
}

TEST_F(CallTest, CallsTheFunctionOfThatName)
{
    int asked = 0;
    for (const std::string& function : FunctionsIn(Run({"--complete", "call"}).out)) {
        if (IsOld(function)) {
            continue;
        }
        SCOPED_TRACE(function);
        Arguments arguments = {"--verbose", "call", function};
        if (const auto more = kArguments.find(function); more != kArguments.end()) {
            arguments.insert(arguments.end(), more->second.begin(), more->second.end());
        }
        const Ended ended = Run(arguments);
        EXPECT_TRUE(ended.exitCode == 0 || ended.exitCode == 1) << ended.err;
        EXPECT_TRUE(WasCalled(function, ended.err, Calls())) << ended.err;
        ++asked;
    }
    EXPECT_EQ(asked, 52);
}

TEST_F(CallTest, OldFunctionsReturnWhatTheyAlwaysDo)
{
    int asked = 0;
    for (const std::string& function : FunctionsIn(Run({"--complete", "call"}).out)) {
        if (IsOld(function)) {
            SCOPED_TRACE(function);
            const auto other = kFixedResults.find(function);
            ExpectOutput({"call", function}, other == kFixedResults.end() ? "0" : other->second);
            ++asked;
        }
    }
    EXPECT_EQ(asked, 40);
}

TEST_F(CallTest, PassesArguments)
{
    Run({"call", "Vireon_StartNetworkSpeakerByID", "KIV01", "1", "-2", "3"});
    Run({"call", "StartNetworkSpeakerByID", "4", "5", "6"});
    Run({"call", "GetSpksConnectionTypeByID", "7"});
    Run({"call", "ResetNetSpkVolume", kLeft, "--ip", "1.0.0.0"});
    Run({"call", "ResetNetSpkVolumeList", kLeft + "=1"});
    ExpectCalls(
        {"Vireon_StartNetworkSpeakerByID(0x4b, 0x49, 0x56, 0x30, 0x31, -2, 1, 3)", "StartNetworkSpeakerByID(5, 4, 6)",
         "GetSpksConnectionTypeByID(7,)", "ResetNetSpkVolume(" + kLeftBytes + ", 1)",
         "ResetNetSpkVolumeList([" + Record(1, kLeftBytes) + "],)"});
}

TEST_F(CallTest, SaysWhatAFunctionReturns)
{
    ExpectOutput({"call", "GetWhetherKivDisabled"}, "no");
    ExpectOutput({"call", "SubscribeNamServiceCallback", "mine"}, "the server answered 1");
    ExpectOutput({"call", "register_atmos_support_cb"}, "the server answered 0");
    ExpectOutput({"call", "unregister_atmos_support_cb"}, "the server answered 0");
    ExpectJson({"call", "StopNetworkSpeaker", "--type", "3"}, {{"result", 3}});
    SwitchFeatureOff();
    ExpectOutput({"call", "GetWhetherKivDisabled"}, "yes");
}

TEST_F(CallTest, BadArgumentsSendNothing)
{
    const std::string takes =
        "; kivctl call SetNetSpkVolume takes MAC VOLUME [--ip IP], see kivctl help call SetNetSpkVolume";
    ExpectRefused({
        {{"call", "GetSpksConnectionTypeByID"}, "N is required"},
        {{"call", "SetNetSpkVolume", kLeft, "0", "33"}, "33" + takes},
        {{"call", "SetNetSpkVolume", kLeft}, "VOLUME is required" + takes},
        {{"call", "Vireon_StartNetworkSpeakerByID", "KIV0", "1", "2", "3"},
         "the identifier must have 5 characters or more, got \"KIV0\""},
        {{"call", "IncreaseNetSpkVolumeList"}, "speakers must be named as SPEAKER"},
    });
}

} // namespace
} // namespace kiv::ctl::call_test
