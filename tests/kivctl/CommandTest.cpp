#include "KivctlTest.h"
#include <KivServiceInterface.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <tuple>

namespace kiv::ctl::command_test {
namespace {

using CommandTest = KivctlTest;

const std::string kTwoSpeakers = "StartNetworkSpeaker([" + Record("0x03, 0x00, 0x00, 0x00", kLeftBytes) + ", " +
                                 Record("0x00, 0x00, 0x00, 0x00", kRightBytes) + "],)";

// One for each function of the library that asks the server, but for those of the monitor.
const std::vector<Arguments> kRequests = {
    {"start", kLeft},
    {"stop"},
    {"surround", "off"},
    {"surround", "channels"},
    {"list", "active"},
    {"list", "all"},
    {"list", "all", "--array"},
    {"list", "count"},
    {"list", "nodes"},
    {"connect", "new", kLeft},
    {"connect", "new", "--outdoor", kLeft},
    {"connect", "direct", "1"},
    {"connect", "by-mobile", "00"},
    {"connect", "by-id", "1", "2", "3"},
    {"connect", "by-id", "1", "2", "3", "--id", "KIV01"},
    {"connect", "group", "1"},
    {"connect", "type", kLeft},
    {"connect", "type", "--id", "1"},
    {"name", kLeft, "Left"},
    {"volume", "get", kLeft},
    {"volume", "get", kLeft, kRight},
    {"volume", "set", kLeft, "30"},
    {"volume", "up", kLeft},
    {"volume", "up", kLeft, kRight},
    {"volume", "down", kLeft},
    {"volume", "down", kLeft, kRight},
    {"volume", "reset", kLeft},
    {"volume", "reset", kLeft, kRight},
    {"volume", "reset-all"},
    {"mode", "get"},
    {"mode", "ui", "get"},
    {"mode", "ui", "set", "surround"},
    {"mode", "can-enter"},
    {"mode", "enabled"},
    {"link", "can-cancel"},
    {"link", "pre-select"},
    {"link", "can-select"},
    {"tone", "start", kLeft},
    {"tone", "stop", kLeft},
    {"soundbar", "mode", "get"},
    {"soundbar", "mode", "set", kLeft, "00"},
    {"soundbar", "info"},
    {"soundbar", "support", "get", kLeft},
    {"soundbar", "support", "set", kLeft, "yes"},
    {"soundbar", "version", kLeft},
    {"atmos"},
    {"node-remove", "2"},
};

TEST_F(CommandTest, StartSendsTheModeAndThenTheSpeakers)
{
    const Ended ended = Run({"start", "--mode", "multiroom", "--reason", "-7", kLeft + "=3", kRight});
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_EQ(ended.out, "the server answered 2\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(Calls(), (std::vector<std::string>{"SetNetSpkSettingMode(81, -7)", kTwoSpeakers}));
}

TEST_F(CommandTest, StartTakesTheSpeakersFromAFile)
{
    const std::string list = WriteFile(R"([{"mac": "02:4b:49:56:00:01", "config": 3}, "02:4B:49:56:00:02"])");
    EXPECT_EQ(Run({"start", "--file", list}).exitCode, 0);
    EXPECT_EQ(Calls(), (std::vector<std::string>{"SetNetSpkSettingMode(80, 0)", kTwoSpeakers}));
}

TEST_F(CommandTest, StartPassesWhatFitsInto32Bits)
{
    const std::string list = WriteFile(R"([{"mac": "02:4b:49:56:00:01", "config": -2147483648}])");
    EXPECT_EQ(Run({"start", "--mode", "7", "--file", list}).exitCode, 0);
    EXPECT_EQ(Run({"start", "--mode", "surround", kLeft + "=2147483647"}).exitCode, 0);
    EXPECT_EQ(
        Calls(), (std::vector<std::string>{
                     "SetNetSpkSettingMode(7, 0)",
                     "StartNetworkSpeaker([" + Record("0x00, 0x00, 0x00, 0x80", kLeftBytes) + "],)",
                     "SetNetSpkSettingMode(80, 0)",
                     "StartNetworkSpeaker([" + Record("0xff, 0xff, 0xff, 0x7f", kLeftBytes) + "],)",
                 }));
}

TEST_F(CommandTest, AnEmptyListIsAList)
{
    EXPECT_EQ(Run({"start", "--file", WriteFile("[]")}).exitCode, 0);
    EXPECT_EQ(Calls(), (std::vector<std::string>{"SetNetSpkSettingMode(80, 0)", "StartNetworkSpeaker([],)"}));
}

TEST_F(CommandTest, StopPassesItsType)
{
    EXPECT_EQ(Run({"stop"}).out, "the server answered 0\n");
    EXPECT_EQ(
        Run({"--json", "stop", "--type", "3"}).out, R"({"command":"stop","result":3})"
                                                    "\n");
    EXPECT_EQ(Calls(), (std::vector<std::string>{"StopNetworkSpeaker(0,)", "StopNetworkSpeaker(3,)"}));
}

TEST_F(CommandTest, SurroundChannelsAreThoseOfThePlayingSpeakers)
{
    Run({"start", kLeft, kRight});
    EXPECT_EQ(
        Run({"surround", "channels", "--json"}).out, R"({"command":"surround channels","result":2})"
                                                     "\n");
    EXPECT_EQ(Run({"surround", "off"}).exitCode, 0);
    EXPECT_EQ(Run({"surround", "channels"}).out, "the server answered 0\n");
}

TEST_F(CommandTest, AtmosIsWhatTheServerSays)
{
    EXPECT_EQ(Run({"atmos"}).out, "not supported\n");
    g_variant_unref(Control("SetAtmos", g_variant_new("(b)", TRUE)));
    EXPECT_EQ(Run({"atmos"}).out, "supported\n");
    const Ended ended = Run({"atmos", "--json"});
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_EQ(
        ended.out, R"({"command":"atmos","result":true})"
                   "\n");
}

TEST_F(CommandTest, NodeRemovePassesItsNode)
{
    EXPECT_EQ(Run({"node-remove", "2"}).out, "the server answered 1\n");
    ExpectFailure({"node-remove", "-2"}, 1, "NodeRemoveFromWatcher returned 0");
    EXPECT_EQ(Calls().front(), "NodeRemoveFromWatcher(2,)");
    EXPECT_EQ(Calls().back(), "NodeRemoveFromWatcher(-2,)");
}

TEST_F(CommandTest, SizesAreThoseOfTheRecords)
{
    EXPECT_EQ(Run({"sizes"}).out, "spk_list_info_s 1086\nspk_info_s 183\n");
    EXPECT_EQ(
        Run({"sizes", "--json"}).out, R"({"command":"sizes","spk_list_info_s":1086,"spk_info_s":183})"
                                      "\n");
}

TEST_F(CommandTest, EnabledTellsTheFeature)
{
    const Ended on = Run({"enabled"});
    EXPECT_EQ(std::tie(on.exitCode, on.out), std::make_tuple(0, "yes\n"));
    SwitchFeatureOff();
    const Ended off = Run({"enabled"});
    EXPECT_EQ(std::tie(off.exitCode, off.out), std::make_tuple(3, "no\n"));
    const Ended json = Run({"enabled", "--json"});
    EXPECT_EQ(json.exitCode, 3);
    EXPECT_EQ(
        json.out, R"({"command":"enabled","result":false})"
                  "\n");
}

TEST_F(CommandTest, ADeviceWithoutSpeakersSendsNothing)
{
    SwitchFeatureOff();
    for (const Arguments& arguments : kRequests) {
        ExpectFailure(arguments, 3, "this device has no network speakers");
    }
    ExpectFailure({"monitor"}, 3, "this device has no network speakers");
    EXPECT_EQ(Calls(), std::vector<std::string>{});
}

TEST_F(CommandTest, AServerThatIsNotThereIsSaidToBe)
{
    bus_.RemoveService("org.lumra.tv.networkspeaker.server");
    for (const Arguments& arguments : kRequests) {
        ExpectFailure(arguments, 1, "the network-speaker server cannot be reached");
    }
    ExpectFailure({"monitor"}, 1, "the network-speaker server cannot be reached");
}

// Methods that the library calls on its own have no command.
std::set<std::string> DeclaredMethods()
{
    const std::ifstream file(KIV_SERVER_XML);
    std::ostringstream xml;
    xml << file.rdbuf();
    g_autoptr(GError) error = nullptr;
    g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(xml.str().c_str(), &error);
    if (node == nullptr) {
        throw std::runtime_error(error->message);
    }
    std::set<std::string> methods;
    for (GDBusMethodInfo** method = node->interfaces[0]->methods; *method != nullptr; ++method) {
        methods.insert((*method)->name);
    }
    methods.erase("check_dbus_connection");
    return methods;
}

TEST_F(CommandTest, EachMethodOfTheServerHasACommand)
{
    for (const Arguments& arguments : kRequests) {
        Run(arguments);
    }
    Running monitor(bus_, {"monitor"});
    monitor.ErrLine();
    monitor.Signal(SIGINT);
    EXPECT_EQ(monitor.Wait().exitCode, 0);

    std::set<std::string> called;
    for (const std::string& call : Calls()) {
        called.insert(call.substr(0, call.find('(')));
    }
    EXPECT_EQ(called, DeclaredMethods());
}

TEST_F(CommandTest, ABusThatIsNotThereIsAFailure)
{
    bus_.Kill();
    ExpectFailure({"stop"}, 1, "the network-speaker server cannot be reached");
    ExpectFailure({"monitor"}, 1, "the network-speaker server cannot be reached");
}

TEST_F(CommandTest, AFailureEndsWithWhoTellsWhy)
{
    bus_.RemoveService("org.lumra.tv.networkspeaker.server");
    EXPECT_EQ(
        Run({"stop"}).err, "kivctl: StopNetworkSpeaker returned -1: the network-speaker server cannot be reached; "
                           "kivctl doctor tells why\n");
    EXPECT_TRUE(Run({"monitor"}).err.ends_with("; kivctl doctor tells why\n"));
    const std::string timed = Run({"--timing", "stop"}).err;
    EXPECT_NE(timed.find("; kivctl doctor tells why\ntook "), std::string::npos) << timed;
    for (const Arguments& arguments : {Arguments{"dance"}, Arguments{"stop", "--type", "soft"}, Arguments{"doctor"}}) {
        EXPECT_EQ(Run(arguments).err.find("tells why"), std::string::npos);
    }
    SwitchFeatureOff();
    EXPECT_EQ(Run({"stop"}).err.find("tells why"), std::string::npos);
}

TEST_F(CommandTest, AFailureValueIsNamed)
{
    SetFault("StopNetworkSpeaker", "reply", "<(-1,)>");
    SetFault("DisableSurround", "error", "'org.example.Broken'");
    ExpectFailure({"stop"}, 1, "StopNetworkSpeaker returned -1: the request failed, or the server refused it");
    ExpectFailure({"surround", "off"}, 1, "DisableSurround returned -1");
    EXPECT_EQ(Json::parse(Run({"stop", "--json"}).out).at("result"), -1);
}

TEST_F(CommandTest, BadArgumentsSendNothing)
{
    const struct {
        Arguments arguments;
        const char* reason;
    } cases[] = {
        {{}, "no command given"},
        {{"dance"}, "dance"},
        {{"surround"}, "no command given"},
        {{"soundbar", "mode"}, "no command given"},
        {{"stop", "now"}, "now"},
        {{"stop", "atmos"}, "atmos"},
        {{"stop", "--type", "soft"}, "--type: \"soft\" is no 32-bit integer"},
        {{"stop", "--type", ""}, "\"\" is no 32-bit integer"},
        {{"stop", "--type", " 1"}, "\" 1\" is no 32-bit integer"},
        {{"stop", "--type", "0x10"}, "\"0x10\" is no 32-bit integer"},
        {{"stop", "--type", "2147483648"}, "--type: \"2147483648\" is no"},
        {{"node-remove"}, "NODE"},
        {{"node-remove", "first"}, "first"},
        {{"monitor", "--count", "0"}, "--count"},
        {{"monitor", "--count", "-1"}, "--count"},
        {{"start"}, "name the speakers"},
        {{"start", "--mode", "stereo", kLeft}, "--mode: \"stereo\" is neither"},
        {{"start", "--reason", "none", kLeft}, "--reason: \"none\" is no"},
        {{"start", kLeft, "--file", WriteFile("[]")}, "name the speakers"},
        {{"start", ""}, "\"\" is no MAC address"},
        {{"start", "=3"}, "\"\" is no MAC address"},
        {{"start", kLeft, "02:4b:49:56:00"}, "\"02:4b:49:56:00\" is no MAC address"},
        {{"start", kLeft + ":07"}, "is no MAC address"},
        {{"start", "02:4b:49:56:0:01"}, "is no MAC address"},
        {{"start", "02:4b:49:56:00:0g"}, "is no MAC address"},
        {{"start", "02:4b:49:56:00:-1"}, "is no MAC address"},
        {{"start", "02-4b-49-56-00-01"}, "is no MAC address"},
        {{"start", " 02:4b:49:56:00:01"}, "is no MAC address"},
        {{"start", kLeft + "="}, "\"\" is no 32-bit integer"},
        {{"start", kLeft + "=1x"}, "\"1x\" is no 32-bit integer"},
        {{"start", kLeft + "=2147483648"}, "\"2147483648\" is no 32-bit integer"},
    };
    for (const auto& [arguments, reason] : cases) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        ExpectFailure(arguments, 2, reason);
    }
    EXPECT_EQ(Calls(), std::vector<std::string>{});
}

TEST_F(CommandTest, ABadListFileSendsNothing)
{
    const struct {
        const char* text;
        const char* reason;
    } cases[] = {
        {"", "line 1, column 1"},
        {"[\n\"02:4b:49:56:00:01\",\n]", "line 3, column 1"},
        {"{}", "not a JSON array"},
        {"[\"\xff\"]", "ill-formed UTF-8"},
        {"[1e999]", "number overflow"},
        {R"(["02:4b:49:56:00:01", 5])", "entry 2: 5 is neither"},
        {R"(["02:4b:49:56:00:01", "02:4b"])", "entry 2: \"02:4b\" is no MAC address"},
        {R"([{"config": 1}])", "entry 1: \"mac\" is missing"},
        {R"([{"mac": 1}])", "entry 1: \"mac\" is 1, not a string"},
        {R"([{"mac": "02:4b:49:56:00:01=1"}])", "is no MAC address"},
        {R"([{"mac": "02:4b:49:56:00:01", "config": "1"}])", "\"config\" is \"1\""},
        {R"([{"mac": "02:4b:49:56:00:01", "config": 1.0}])", "\"config\" is 1.0"},
        {R"([{"mac": "02:4b:49:56:00:01", "config": 2147483648}])", "\"config\" is 2147483648"},
        {R"([{"mac": "02:4b:49:56:00:01", "config": 18446744073709551615}])", "\"config\" is 18446744073709551615"},
        {R"([{"mac": "02:4b:49:56:00:01", "config": -2147483649}])", "\"config\" is -2147483649"},
        {R"([{"mac": "02:4b:49:56:00:01", "confg": 1}])", "unknown key \"confg\""},
    };
    for (const auto& [text, reason] : cases) {
        SCOPED_TRACE(text);
        ExpectFailure({"start", "--file", WriteFile(text)}, 2, reason);
    }
    ExpectFailure({"start", "--file", bus_.Directory() / "absent"}, 2, "No such file or directory");
    ExpectFailure({"start", "--file", bus_.Directory()}, 2, "Is a directory");
    EXPECT_EQ(Calls(), std::vector<std::string>{});
}

TEST_F(CommandTest, VerboseShowsTheLibrarysLogBesideTheResult)
{
    const Ended ended = Run({"--verbose", "--json", "stop"});
    EXPECT_EQ(
        ended.out, R"({"command":"stop","result":0})"
                   "\n");
    EXPECT_NE(ended.err.find("STOP, nStopType[0]"), std::string::npos) << ended.err;
}

TEST(OutputTest, ThatCannotBeWrittenIsAFailure)
{
    const int status = std::system(KIV_CTL " sizes > /dev/full 2> /dev/null");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
}

TEST_F(CommandTest, HelpTellsTheCommandsAndTheExitCodes)
{
    const Ended help = Run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* word :
         {"start",  "stop", "surround", "list",     "connect",   "name",       "volume",      "mode",
          "link",   "tone", "soundbar", "enabled",  "monitor",   "atmos",      "node-remove", "sizes",
          "doctor", "call", "--json",   "--timing", "--timeout", "Exit codes:"}) {
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(Run({"start", "--help"}).exitCode, 0);
    EXPECT_EQ(Run({"--version"}).out.rfind("kivctl ", 0), 0U);
}

} // namespace
} // namespace kiv::ctl::command_test
