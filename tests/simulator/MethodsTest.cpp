#include "simulator/Methods.h"

#include "simulator/Clients.h"
#include "simulator/Home.h"
#include "simulator/Interfaces.h"
#include "simulator/SimulatorTest.h"

#include <fmt/format.h>

#include <map>
#include <optional>
#include <set>

namespace kiv::simulator::methods_test {
namespace {

// A call, and its answer in a home without changes.
struct Example {
    std::string arguments;
    std::string answer;
};

std::map<std::string, Example> Examples()
{
    const std::string speaker = MacArguments(0x01);
    const std::string address = speaker + ", 352364736"; // 192.168.0.21
    const std::string label = "byte 0x4b, byte 0x49, byte 0x56, byte 0x30, byte 0x31";
    const std::string records = Records({StartRecord(0, 0x01), StartRecord(0, 0x02)});
    const std::string newSpeaker = "(@ay [1, 0, 0, 0, 2, 0x4b, 0x49, 0x56, 0, 5],)";
    const std::string mobileMessage = "(@ay [6, 0, 0, 0, 2, 0x4b, 0x49, 0x56, 0, 5],)";
    const std::string soundbar = "(@ay [2, 0x4b, 0x49, 0x56, 0, 0xb0],)";
    const std::string soundMode = "(@ay [2, 0x4b, 0x49, 0x56, 0, 0xb0, 192, 168, 0, 20, 9, 8, 7],)";
    const std::string support = "(@ay [2, 0x4b, 0x49, 0x56, 0, 0xb0, 192, 168, 0, 20, 0, 0, 0, 0],)";
    return {
        {"check_dbus_connection", {"(7,)", "('tv_7',)"}},
        {"SubscribeNamServiceCallback", {"(7,)", "('tv_7',)"}},
        {"UnsubscribeNamServiceCallback", {"(7,)", "('tv_7',)"}},

        {"AutoConnectNewSpeakers", {newSpeaker, "(1,)"}},
        {"AutoConnectNewSpeakersForOutdoor", {newSpeaker, "(1,)"}},
        {"ConnectNetworkSpeakerByMobile", {mobileMessage, "(0,)"}},
        {"ConnectToSpeakerForInfraLessSetup", {"(5,)", "(0,)"}},
        {"GetSpksConnectionType", {records, "(1,)"}},
        {"GetSpksConnectionTypeByID", {"(1,)", "(1,)"}},

        {"StartNetworkSpeaker", {"(@ay [],)", "(0,)"}},
        {"StartNetworkSpeakerByID", {"(1, 80, 2)", "(1,)"}},
        {"Vireon_StartNetworkSpeakerByID", {"(" + label + ", 3, 80, 2)", "(1,)"}},
        {"StartNetworkSpeakerGroupByMobile", {"(1,)", "(3,)"}},
        {"StopNetworkSpeaker", {"(4,)", "(4,)"}},
        {"DisableSurround", {"()", "(0,)"}},
        {"GetSurroundChannelNumber", {"()", "(0,)"}},
        {"kiv_is_receiver_atmos", {"()", "(false,)"}},

        {"GetActiveNetSpkInfo", {"(0,)", "155 bytes"}},
        {"GetNetSpkListInfo", {"(0,)", "2172 bytes"}},
        {"GetNetSpkListInfoNumber", {"()", "(2,)"}},
        {"GetNetSpkNodeList", {"(0,)", "938 bytes"}},
        {"NodeRemoveFromWatcher", {"(1,)", "(1,)"}},
        {"SetNetSpkName", {"(" + address + ", 'Door')", "(0,)"}},
        {"StartNetSpkTest", {"(" + speaker + ", 1, 2, 3)", "(0,)"}},
        {"StopNetSpkTest", {"(" + speaker + ", 1, 2)", "(0,)"}},

        {"GetNetSpkVolume", {"(" + address + ")", "(20,)"}},
        {"SetNetSpkVolume", {"(" + address + ", 33)", "(33,)"}},
        {"IncreaseNetSpkVolume", {"(" + address + ")", "(21,)"}},
        {"DecreaseNetSpkVolume", {"(" + address + ")", "(19,)"}},
        {"ResetNetSpkVolume", {"(" + address + ")", "(25,)"}},
        {"GetNetSpkVolumeList", {records, "(2,)"}},
        {"IncreaseNetSpkVolumeList", {records, "(2,)"}},
        {"DecreaseNetSpkVolumeList", {records, "(2,)"}},
        {"ResetNetSpkVolumeList", {records, "(2,)"}},
        {"ResetAllNetSpkVolume", {"()", "(4,)"}},

        {"SetSoundbarSoundMode", {soundMode, "(0,)"}},
        {"GetSoundbarSoundMode", {"(0,)", "34 bytes"}},
        {"GetSoundbarDeviceInfo", {"(0,)", "14 bytes"}},
        {"SetSoundbarSupportSoundMode", {support, "(0,)"}},
        {"IsSoundbarSupportSoundMode", {soundbar, "(true,)"}},
        {"GetSoundbarProtocolVersion", {soundbar, "24 bytes"}},

        {"SetNetSpkSettingMode", {"(80, 1)", "(0,)"}},
        {"GetNetSpkSettingMode", {"()", "(80,)"}},
        {"SetTavrinUIMode", {"(81,)", "(81,)"}},
        {"GetTavrinUIMode", {"()", "(80,)"}},
        {"CanSelectTavrin", {"()", "(true,)"}},
        {"PreSelectTavrin", {"()", "(true,)"}},
        {"CanCancelTavrin", {"()", "(false,)"}},
        {"CanEnterTavrinSettings", {"()", "(true,)"}},
        {"FlagEnableNetworkSpeaker", {"()", "(true,)"}},
    };
}

// Returns the answer, with the length in place of a byte array.
std::string Brief(const std::string& answer)
{
    const std::optional<Bytes> bytes = AnsweredBytes(answer);
    return bytes ? fmt::format("{} bytes", bytes->size()) : answer;
}

TEST(MethodsTest, EachDeclaredMethodIsServed)
{
    Home home;
    Clients clients;
    std::set<std::string> served;
    for (const auto& [name, method] : ServerMethods(home, clients)) {
        served.insert(name);
    }
    EXPECT_EQ(served, Interface(kServerXml).Methods());
}

class MethodTest : public SimulatorTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(MethodTest, AnswersWithTheDeclaredType)
{
    const std::map<std::string, Example> examples = Examples();
    ASSERT_TRUE(examples.contains(GetParam())) << "no example";
    Start();
    const auto& [arguments, answer] = examples.at(GetParam());
    EXPECT_EQ(Brief(Server(GetParam(), arguments)), answer);
}

INSTANTIATE_TEST_SUITE_P(
    Server, MethodTest, ::testing::ValuesIn(Interface(kServerXml).Methods()),
    [](const auto& method) { return method.param; });

} // namespace
} // namespace kiv::simulator::methods_test
