#include "kivctl/KivctlTest.h"
#include "src/link/Owners.h"
#include "support/Wait.h"
#include <KivServiceInterface.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <stdexcept>

namespace kiv::ctl::command_test {
namespace {

class CommandTest : public KivctlTest {
protected:
    // Returns the words that can follow, each in a line with its explanation.
    std::string Offered(Arguments words) const
    {
        words.insert(words.begin(), "--complete");
        return "\n" + Run(words).out;
    }
};

// The advice about an error whose name kivctl does not know, at the end of a message.
const std::string kSeeWhatItMeans = "; look into the server's own log to see what the error means";

const std::string kTwoSpeakers =
    "StartNetworkSpeaker([" + Record(3, kLeftBytes) + ", " + Record(0, kRightBytes) + "],)";

// One command for each function of the library that calls the server, except those of the monitor.
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
    EXPECT_THAT(
        Run({"start", "--mode", "multiroom", "--reason", "-7", kLeft + "=3", kRight}),
        Ends(0, "the server answered 2 (number of speakers that play now)\n", ""));
    ExpectCalls({"SetNetSpkSettingMode(81, -7)", kTwoSpeakers});
}

TEST_F(CommandTest, StartTakesTheSpeakersFromAFile)
{
    const std::string list = WriteFile(R"([{"mac": "02:4b:49:56:00:01", "config": 3}, "02:4B:49:56:00:02"])");
    EXPECT_EQ(Run({"start", "--file", list}).exitCode, 0);
    ExpectCalls({"SetNetSpkSettingMode(80, 0)", kTwoSpeakers});
}

TEST_F(CommandTest, StartPassesWhatFitsInto32Bits)
{
    const std::string list = WriteFile(R"([{"mac": "02:4b:49:56:00:01", "config": -2147483648}])");
    EXPECT_EQ(Run({"start", "--mode", "7", "--file", list}).exitCode, 0);
    EXPECT_EQ(Run({"start", "--mode", "surround", kLeft + "=2147483647"}).exitCode, 0);
    ExpectCalls(
        {"SetNetSpkSettingMode(7, 0)", "StartNetworkSpeaker([" + Record(INT32_MIN, kLeftBytes) + "],)",
         "SetNetSpkSettingMode(80, 0)", "StartNetworkSpeaker([" + Record(INT32_MAX, kLeftBytes) + "],)"});
}

TEST_F(CommandTest, AnEmptyListIsAList)
{
    EXPECT_EQ(Run({"start", "--file", WriteFile("[]")}).exitCode, 0);
    ExpectCalls({"SetNetSpkSettingMode(80, 0)", "StartNetworkSpeaker([],)"});
}

TEST_F(CommandTest, StopPassesItsType)
{
    EXPECT_EQ(Run({"stop"}).out, "the server answered 0\n");
    ExpectJson({"stop", "--type", "3"}, {{"result", 3}});
    ExpectCalls({"StopNetworkSpeaker(0,)", "StopNetworkSpeaker(3,)"});
}

TEST_F(CommandTest, SurroundChannelsAreThoseOfThePlayingSpeakers)
{
    Run({"start", kLeft, kRight});
    ExpectJson({"surround", "channels"}, {{"result", 2}});
    EXPECT_EQ(Run({"surround", "off"}).exitCode, 0);
    EXPECT_EQ(Run({"surround", "channels"}).out, "the server answered 0\n");
}

TEST_F(CommandTest, AtmosIsWhatTheServerSays)
{
    EXPECT_EQ(Run({"atmos"}).out, "not supported\n");
    SwitchAtmosOn();
    EXPECT_EQ(Run({"atmos"}).out, "supported\n");
    ExpectJson({"atmos"}, {{"result", true}});
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
    ExpectJson({"sizes"}, {{"spk_list_info_s", 1086}, {"spk_info_s", 183}});
}

TEST_F(CommandTest, EnabledTellsTheFeature)
{
    ExpectOutput({"enabled"}, "yes");
    SwitchFeatureOff();
    EXPECT_THAT(Run({"enabled"}), Ends(3, "no\n", ""));
    EXPECT_THAT(Run({"enabled", "--json"}), Ends(3, "{\"command\":\"enabled\",\"result\":false}\n", ""));
}

TEST_F(CommandTest, EnabledTellsWhyTheFeatureCannotBeRead)
{
    const std::string file = bus_.Directory() / "features";
    RemoveFeature();
    ExpectOutput({"enabled"}, "yes: it cannot be read, which counts as yes: " + file + ": No such file or directory");
    const auto write = [&file](const char* line) { std::ofstream(file) << "[com.molvane/featureconf]\n" << line; };
    write("kiv_multi_ch_support=maybe\n");
    const std::string reason = "it cannot be read, which counts as yes: " + file +
                               ": kiv_multi_ch_support must be true or false, got \"maybe\"";
    ExpectOutput({"enabled"}, "yes: " + reason);
    ExpectJson({"enabled"}, {{"result", true}, {"reason", reason}});
    write("");
    EXPECT_THAT(Run({"enabled"}).out, HasSubstr("kiv_multi_ch_support"));
}

TEST_F(CommandTest, ADeviceWithoutSpeakersSendsNothing)
{
    SwitchFeatureOff();
    for (const Arguments& arguments : kRequests) {
        ExpectFailure(arguments, 3, "this device has no network speakers");
    }
    ExpectFailure({"monitor"}, 3, "this device has no network speakers");
    ExpectCalls({});
}

TEST_F(CommandTest, AServerThatIsNotThereIsSaidToBe)
{
    bus_.RemoveService(kServerName);
    for (const Arguments& arguments : kRequests) {
        ExpectFailure(arguments, 1, "the network-speaker server cannot be reached");
    }
}

// The library itself calls some methods, which have no command.
std::set<std::string> DeclaredMethods()
{
    const std::ifstream file(KIV_SERVER_XML);
    std::ostringstream xml;
    xml << file.rdbuf();
    link::ErrorOwner error;
    const link::NodeInfoOwner node(g_dbus_node_info_new_for_xml(xml.str().c_str(), error.Out()));
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
    EXPECT_EQ(monitor.ExitCodeAfter(SIGINT), 0);

    std::set<std::string> called;
    for (const std::string& call : Calls()) {
        called.insert(call.substr(0, call.find('(')));
    }
    EXPECT_EQ(called, DeclaredMethods());
}

TEST_F(CommandTest, ABusThatIsNotThereIsAFailure)
{
    bus_.Kill();
    const std::string reason =
        "the system bus cannot be reached at " + bus_.Address() + " (from DBUS_SYSTEM_BUS_ADDRESS): ";
    const std::string advice = "; correct or unset DBUS_SYSTEM_BUS_ADDRESS, or start the bus that it names";
    ExpectFailure({"stop"}, 1, "the network-speaker server cannot be reached: " + reason, advice);
    ExpectFailure({"monitor"}, 1, reason, advice);
}

TEST_F(CommandTest, AFailureEndsWithWhoTellsWhy)
{
    bus_.RemoveService(kServerName);
    EXPECT_EQ(
        Run({"stop"}).err,
        "kivctl: StopNetworkSpeaker returned -1: the network-speaker server cannot be reached: "
        "org.freedesktop.DBus.Error.ServiceUnknown: The name org.lumra.tv.networkspeaker.server was not provided by "
        "any .service files; kivctl doctor tells why\n");
    const std::string timed = Run({"--timing", "stop"}).err;
    EXPECT_THAT(timed, HasSubstr("; kivctl doctor tells why\ntook "));
    for (const Arguments& arguments : {Arguments{"dance"}, Arguments{"stop", "--type", "soft"}, Arguments{"doctor"}}) {
        EXPECT_THAT(Run(arguments).err, Not(HasSubstr("tells why")));
    }
    SwitchFeatureOff();
    EXPECT_THAT(Run({"stop"}).err, Not(HasSubstr("tells why")));
}

TEST_F(CommandTest, AnErrorOfAServerThatIsReachedIsNamed)
{
    Break("check_dbus_connection");
    // The advice does not name doctor, because it could only say the same.
    for (const Arguments& arguments : kRequests) {
        ExpectFailure(
            arguments, 1, "the network-speaker server answers with the error org.example.Broken", kSeeWhatItMeans);
    }
    Reply("check_dbus_connection", "5");
    ExpectFailure(
        {"stop"}, 1, "the network-speaker server answers (i) instead of a client id",
        "; use a server that serves this interface (man kiv-dbus)");
}

// Answers the question for the client id, and gives up the server's name before the answer arrives.
GDBusMessage* AnswerAndGo(GDBusConnection* connection, GDBusMessage* message, gboolean incoming, gpointer)
{
    if (incoming == FALSE || g_strcmp0(g_dbus_message_get_member(message), "check_dbus_connection") != 0) {
        return message;
    }
    const link::MessageOwner call(message);
    const link::MessageOwner release(g_dbus_message_new_method_call(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ReleaseName"));
    g_dbus_message_set_body(release.get(), g_variant_new("(s)", kServerName));
    const link::MessageOwner answer(g_dbus_message_new_method_reply(call.get()));
    g_dbus_message_set_body(answer.get(), g_variant_new("(s)", "tv_1"));
    for (GDBusMessage* const sent : {release.get(), answer.get()}) {
        g_dbus_connection_send_message(connection, sent, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    }
    return nullptr;
}

TEST_F(CommandTest, AServerThatGoesBeforeTheRequestIsSaidToHaveGone)
{
    bus_.RemoveService(kServerName);
    const sandbox::Connection server(bus_.Address());
    g_dbus_connection_add_filter(server.Get(), AnswerAndGo, nullptr, nullptr);
    server.CallDaemon("org.freedesktop.DBus", "RequestName", g_variant_new("(su)", kServerName, 0U));
    EXPECT_THAT(
        Run({"stop"}),
        Ends(1, "", "kivctl: StopNetworkSpeaker returned -1: the server has gone; the server's own log tells why\n"));
}

// doctor checks the way to the server, and no single requests.
TEST_F(CommandTest, AnAnswerOfTheServerEndsWithWhatToDo)
{
    Break("DisableSurround");
    Reply("StopNetworkSpeaker", "-1");
    Reply("GetSurroundChannelNumber", "'text'");
    Reply("GetSoundbarDeviceInfo", "@ay []");
    SetFault("kiv_is_receiver_atmos", "error", "'org.freedesktop.DBus.Error.UnknownMethod'");
    SetFault("CanCancelTavrin", "error", "'org.lumra.tv.networkspeaker.simulator.Error.NotRecorded'");
    const std::pair<Arguments, std::string> cases[] = {
        {{"node-remove", "99"}, ": the server watches no such node; kivctl list nodes shows which nodes there are\n"},
        {{"connect", "type", "--id", "99"},
         ": the server refused it; kivctl list nodes shows which speakers there are\n"},
        {{"soundbar", "info"},
         ": the server sent nothing usable, which usually means that it has no such soundbar; otherwise it has "
         "another version of the interface\n"},
        {{"surround", "channels"},
         ": the answer must be of the D-Bus type (i), got (s); use a server that serves this interface (man "
         "kiv-dbus)\n"},
        {{"atmos"}, "Error.UnknownMethod; use a server that serves this interface (man kiv-dbus)\n"},
        {{"link", "can-cancel"},
         "Error.NotRecorded; the server replays a recording that has no such call: record one that has it\n"},
        {{"stop"}, ": the server refused it; the server's own log tells why\n"},
        {{"surround", "off"}, "with the error org.example.Broken" + kSeeWhatItMeans + "\n"},
    };
    for (const auto& [arguments, end] : cases) {
        EXPECT_THAT(Run(arguments), Ends(1, _, EndsWith(end)));
    }
    Forbid(R"(<deny send_path="*" send_member="DisableSurround"/>)");
    const std::string denied = Run({"surround", "off"}).err;
    EXPECT_THAT(denied, HasSubstr("the bus answered with the error org.freedesktop.DBus.Error.AccessDenied: "));
    EXPECT_THAT(denied, EndsWith(", reload the bus, and run as a user whom the policy takes for a client\n"));
}

// The library logs the id in brackets, unchanged.
TEST_F(CommandTest, AClientIdThatReadsLikeALineOfTheLogFailsNothing)
{
    for (const char* id : {" expected, [x", " MethodCall Error", " from NAM, ", "request launch kiv-service"}) {
        SCOPED_TRACE(id);
        SetClientId(id);
        EXPECT_THAT(Run({"volume", "set", "02:4b:49:56:00:01", "30", "--no-wait"}), Ends(0, "sent\n", _));
    }
}

TEST_F(CommandTest, AFailureValueIsNamed)
{
    Reply("StopNetworkSpeaker", "-1");
    Break("DisableSurround");
    ExpectFailure({"stop"}, 1, "StopNetworkSpeaker returned -1: the server refused it");
    ExpectFailure({"surround", "off"}, 1, "DisableSurround returned -1: " + kBroken);
    EXPECT_EQ(Json::parse(Run({"stop", "--json"}).out).at("result"), -1);
}

TEST_F(CommandTest, ARequestThatFailedIsAFailureWhateverItsResult)
{
    Break("*");
    SetFault("check_dbus_connection", "delay", "uint32 1"); // the server answers the id, a moment later
    std::vector<Arguments> requests = kRequests;
    requests.insert(
        requests.end(), {{"call", "SubscribeNamServiceCallback", "mine"},
                         {"call", "UnsubscribeNamServiceCallback", "mine"},
                         {"call", "register_atmos_support_cb"},
                         {"call", "unregister_atmos_support_cb"},
                         {"volume", "set", kLeft, "30", "--no-wait"},
                         {"volume", "get", kLeft, "--wait"}});
    for (const Arguments& arguments : requests) {
        const Ended ended = Run(arguments);
        EXPECT_EQ(ended.exitCode, 1);
        EXPECT_THAT(ended.err, HasSubstr(": the server answered "));
        EXPECT_THAT(ended.err, EndsWith("with the error org.example.Broken" + kSeeWhatItMeans + "\n"));
    }
}

TEST_F(CommandTest, BadArgumentsSendNothing)
{
    std::vector<Refusal> cases = {
        {{}, "no command given; kivctl help lists them"},
        {{"dance"}, "unknown command dance; kivctl help lists them"},
        {{"soundbar", "mode"}, "no command given; kivctl help soundbar mode lists them"},
        {{"mode", "ui"}, "no command given"},
        {{"volum", "up"}, "unknown command volum; did you mean volume?"},
        {{"volume", "upp"}, "unknown command volume upp; did you mean volume up?"},
        {{"--jso", "stop"}, "unknown option --jso; did you mean --json?"},
        {{"stop", "--tpe", "3"}, "unknown option --tpe; did you mean --type?"},
        {{"stop", "--colour"}, "unknown option --colour; kivctl help stop lists them"},
        {{"--for", "3", "monitor"},
         "unknown option --for; it is an option of monitor, so write it behind that command"},
        {{"volume", "--ip=1.2.3.4", "get", kLeft},
         "unknown option --ip=1.2.3.4; it is an option of volume get, so write it behind that command"},
        {{"call", "StopNetworkSpeakers"},
         "unknown command call StopNetworkSpeakers; did you mean call StopNetworkSpeaker?"},
        {{"help", "volum"}, "unknown command volum; did you mean volume?"},
        {{"stop", "3"},
         "The following argument was not expected: 3; kivctl stop takes [--type N], see kivctl help stop"},
        {{"atmos", "1"}, "1; kivctl atmos takes no arguments, see kivctl help atmos"},
        {{"stop", "now"}, "now"},
        {{"stop", "atmos"}, "atmos"},
        {{"stop", "--type", "soft"}, "--type: must be a 32-bit integer, got \"soft\""},
        {{"stop", "--type", ""}, "must be a 32-bit integer, got \"\""},
        {{"stop", "--type", " 1"}, "must be a 32-bit integer, got \" 1\""},
        {{"stop", "--type", "0x10"}, "must be a 32-bit integer, got \"0x10\""},
        {{"stop", "--type", "2147483648"}, "--type: must be a 32-bit integer, got \"2147483648\""},
        {{"node-remove"}, "NODE"},
        {{"node-remove", "first"}, "first"},
        {{"monitor", "--count", "0"}, "--count: must be an integer from 1 to 2147483647, got \"0\""},
        {{"monitor", "--count", "-1"}, "--count"},
        {{"start"}, "speakers must be named as SPEAKER or in --file, got neither"},
        {{"start", "--mode", "stereo", kLeft},
         "--mode: must be multiroom (81), surround (80) or another 32-bit integer, got \"stereo\""},
        {{"start", "--reason", "none", kLeft}, "--reason: must be a 32-bit integer, got \"none\""},
        {{"start", kLeft, "--file", WriteFile("[]")}, "speakers must be named as SPEAKER or in --file, got both"},
        {{"start", ""}, "must be a MAC address such as 02:4b:49:56:00:01, got \"\""},
        {{"start", "=3"}, "must be a MAC address such as 02:4b:49:56:00:01, got \"\""},
        {{"start", kLeft, "02:4b:49:56:00"}, "01, got \"02:4b:49:56:00\""},
        {{"start", kLeft + ":07"}, "must be a MAC address such as"},
        {{"start", "02:4b:49:56:0:01"}, "must be a MAC address such as"},
        {{"start", "02:4b:49:56:00:0g"}, "must be a MAC address such as"},
        {{"start", "02:4b:49:56:00:-1"}, "must be a MAC address such as"},
        {{"start", "02-4b-49-56-00-01"}, "must be a MAC address such as"},
        {{"start", " 02:4b:49:56:00:01"}, "must be a MAC address such as"},
        {{"start", kLeft + "="}, "must be a 32-bit integer, got \"\""},
        {{"start", kLeft + "=1x"}, "must be a 32-bit integer, got \"1x\""},
        {{"start", kLeft + "=2147483648"}, "must be a 32-bit integer, got \"2147483648\""},
    };
    for (const char* group : {"surround", "list", "connect", "volume", "mode", "link", "tone", "soundbar", "call"}) {
        cases.push_back({{group}, "no command given"});
    }
    ExpectRefused(cases);
}

TEST_F(CommandTest, ABadListFileSendsNothing)
{
    const std::pair<const char*, const char*> cases[] = {
        {"", "line 1, column 1"},
        {"[\n\"02:4b:49:56:00:01\",\n]", "line 3, column 1"},
        {"{}", "must be a JSON array of speakers, got {}"},
        {"[\"\xff\"]", "ill-formed UTF-8"},
        {"[1e999]", "number overflow"},
        {R"(["02:4b:49:56:00:01", 5])",
         "entry 2: must be \"MAC=CONFIG\" or an object with \"mac\" and \"config\", got 5"},
        {R"(["02:4b:49:56:00:01", "02:4b"])",
         "entry 2: must be a MAC address such as 02:4b:49:56:00:01, got \"02:4b\""},
        {R"([{"config": 1}])", "entry 1: \"mac\" is missing"},
        {R"([{"mac": 1}])", "entry 1: \"mac\" must be a text, got 1"},
        {R"([{"mac": "02:4b:49:56:00:01=1"}])", "must be a MAC address such as"},
        {R"([{"mac": "02:4b:49:56:00:01", "config": "1"}])", "\"config\" must be a 32-bit integer, got \"1\""},
        {R"([{"mac": "02:4b:49:56:00:01", "config": 1.0}])", "\"config\" must be a 32-bit integer, got 1.0"},
        {R"([{"mac": "02:4b:49:56:00:01", "config": 2147483648}])",
         "\"config\" must be a 32-bit integer, got 2147483648"},
        {R"([{"mac": "02:4b:49:56:00:01", "config": 18446744073709551615}])",
         "\"config\" must be a 32-bit integer, got 18446744073709551615"},
        {R"([{"mac": "02:4b:49:56:00:01", "config": -2147483649}])",
         "\"config\" must be a 32-bit integer, got -2147483649"},
        {R"([{"mac": "02:4b:49:56:00:01", "confg": 1}])", "unknown key \"confg\"; known are config, mac"},
    };
    for (const auto& [text, reason] : cases) {
        SCOPED_TRACE(text);
        ExpectFailure({"start", "--file", WriteFile(text)}, 2, reason);
    }
    ExpectFailure({"start", "--file", bus_.Directory() / "absent"}, 2, "No such file or directory");
    ExpectFailure({"start", "--file", bus_.Directory()}, 2, "Is a directory");
    ExpectFailure({"start", "--file", "/dev/zero"}, 2, "/dev/zero: must be a file of at most 64 MiB, got more");
    ExpectCalls({});
}

TEST_F(CommandTest, AListFileMayHave64MiB)
{
    const std::string list = WriteFile("[" + std::string(64UL * 1024 * 1024 - 2, ' ') + "]");
    EXPECT_EQ(Run({"start", "--file", list}).exitCode, 0);
    std::ofstream(list, std::ios::app) << ' ';
    ExpectFailure({"start", "--file", list}, 2, list + ": must be a file of at most 64 MiB, got more");
}

TEST_F(CommandTest, VerboseShowsTheLibrarysLogBesideTheResult)
{
    EXPECT_THAT(
        Run({"--verbose", "--json", "stop"}),
        Ends(0, "{\"command\":\"stop\",\"result\":0}\n", HasSubstr("STOP, nStopType[0]")));
}

const Environment kLogsAsUsual = {{"KIV_LOG_LEVEL", ""}};

TEST_F(CommandTest, TheLibrarysLinesStayAwayFromASuccess)
{
    // The first call finds no server, and makes the bus start it.
    EXPECT_THAT(Run({"stop"}, kLogsAsUsual), Ends(0, "the server answered 0\n", ""));
}

TEST_F(CommandTest, TheLibrarysLinesAreShownBeforeAFailure)
{
    Break("StopNetworkSpeaker");
    const Ended ended = Run({"stop"}, kLogsAsUsual);
    EXPECT_EQ(ended.exitCode, 1);
    const size_t line = ended.err.find("[StopNetworkSpeaker],[GDBus.Error:org.example.Broken");
    const size_t own = ended.err.find("kivctl: StopNetworkSpeaker returned -1");
    EXPECT_NE(own, std::string::npos) << ended.err;
    EXPECT_LT(line, own) << ended.err;
}

TEST_F(CommandTest, TheLibrarysLinesAreShownBeforeAFailureThatLooksLikeAnAnswer)
{
    const std::string broken = WriteFile(R"({"faults": {"GetNetSpkSettingMode": {"error": "org.example.Broken"}}})");
    bus_.WriteService({kServerName, {KIV_SIMULATOR, "--scenario", broken}});
    EXPECT_THAT(
        Run({"mode", "get"}, kLogsAsUsual),
        Ends(1, "", HasSubstr("method [GetNetSpkSettingMode],[GDBus.Error:org.example.Broken")));
}

TEST_F(CommandTest, TheLibrarysLinesAreShownToWhomAsksForThem)
{
    EXPECT_THAT(Run({"stop"}, {{"KIV_LOG_LEVEL", "warning"}}).err, HasSubstr("STOP, nStopType[0]"));
    EXPECT_THAT(Run({"stop", "--verbose"}, kLogsAsUsual).err, HasSubstr(">>> API Start"));
}

TEST_F(CommandTest, TheLibrarysLinesAreShownWhenTimeIsUp)
{
    SetFault("StopNetworkSpeaker", "silent", "true");
    const Ended ended = Run({"stop", "--timeout", "2"}, kLogsAsUsual);
    EXPECT_EQ(ended.exitCode, 4);
    EXPECT_THAT(ended.err, HasSubstr("STOP, nStopType[0]"));
    EXPECT_THAT(
        ended.err, EndsWith("kivctl: stop: not done within 2000 ms: the server has not answered StopNetworkSpeaker; "
                            "the server's own log tells why\n"));
}

TEST_F(CommandTest, TheLibrarysLinesSurviveASignal)
{
    SetFault("StopNetworkSpeaker", "silent", "true");
    for (const int signal : {SIGINT, SIGTERM, SIGABRT}) {
        Control("ForgetCalls");
        Running stop(bus_, {"stop"}, kLogsAsUsual);
        test::WaitUntil("the call", [this] { return !Calls().empty(); });
        stop.Signal(signal);
        EXPECT_THAT(stop.Wait(), Ends(-1, _, HasSubstr("STOP, nStopType[0]")));
    }
}

TEST_F(CommandTest, AMonitorShowsLinesOnceItIsReady)
{
    Running monitor(bus_, {"monitor"}, kLogsAsUsual);
    EXPECT_EQ(monitor.ErrLine(), "kivctl: ready, waiting for events");
    SendPayload("");
    EXPECT_THAT(monitor.ErrLine(), HasSubstr("NULL payload"));
    EXPECT_EQ(monitor.ExitCodeAfter(SIGINT), 0);
}

TEST_F(CommandTest, OutputThatCannotBeWrittenIsAFailure)
{
    for (const std::string words : {"sizes", "help", "--help", "--version", "volume set --help"}) {
        for (const char* output : {"/dev/full", "&-"}) {
            const Ended ended = RunInShell("kivctl " + words + " >" + output);
            EXPECT_EQ(ended.exitCode, 1) << words;
            EXPECT_EQ(ended.err, "kivctl: the output could not be written\n") << words;
        }
    }
}

TEST_F(CommandTest, OutputToAClosedStreamGoesNowhere)
{
    EXPECT_THAT(
        RunInShell("env -u KIV_LOG_LEVEL kivctl doctor >&-"),
        Ends(1, _, AllOf(Not(HasSubstr("ok ")), EndsWith("kivctl: the output could not be written\n"))));
}

// Returns the commands that have no subcommands, without the library's functions.
std::vector<Arguments> CommandsBelow(const std::function<std::string(Arguments)>& run, const Arguments& path)
{
    std::vector<Arguments> commands;
    std::istringstream help(run(path));
    bool listed = false;
    for (std::string line; std::getline(help, line);) {
        listed = line == "Subcommands:" || (listed && !line.empty());
        std::istringstream words(line);
        std::string name;
        if (listed && line.starts_with("  ") && line[2] != ' ' && words >> name) {
            Arguments part = path;
            part.push_back(name);
            const auto below = name == "call" ? std::vector<Arguments>{} : CommandsBelow(run, part);
            commands.insert(commands.end(), below.begin(), below.end());
            if (below.empty()) {
                commands.push_back(part);
            }
        }
    }
    return commands;
}

TEST_F(CommandTest, EachCommandHasAnExampleThatRuns)
{
    // The example of connecting a speaker must come before the examples that use that speaker.
    const auto help = [this](Arguments path) {
        path.insert(path.begin(), "help");
        return Run(path).out;
    };
    const std::vector<Arguments> commands = CommandsBelow(help, {});
    EXPECT_GT(commands.size(), 40U);
    for (const Arguments& command : commands) {
        SCOPED_TRACE(testing::PrintToString(command));
        const std::string text = help(command);
        EXPECT_THAT(text, Not(HasSubstr("Exit codes")));
        const std::string head = "Example:\n  ";
        const size_t at = text.find(head + "kivctl ");
        ASSERT_NE(at, std::string::npos) << text;
        const std::string example = text.substr(at + head.size(), text.find('\n', at + head.size()) - at - head.size());
        const Ended ended = RunInShell(example);
        EXPECT_EQ(ended.exitCode, 0) << example << ended.out << ended.err;
    }
}

TEST_F(CommandTest, TheHelpOfAFunctionHasNoExampleOfAnother)
{
    EXPECT_THAT(Run({"help", "call"}).out, HasSubstr("kivctl call SetNetSpkVolume"));
    for (const char* function : {"StartNetworkSpeakerByID", "SetNetSpkVolume"}) {
        const std::string help = Run({"help", "call", function}).out;
        EXPECT_THAT(help, HasSubstr(function));
        EXPECT_THAT(help, Not(HasSubstr("Example")));
    }
}

TEST_F(CommandTest, HelpIsACommandToo)
{
    EXPECT_EQ(Run({"help"}).out, Run({"--help"}).out);
    EXPECT_EQ(Run({"help", "volume", "set"}).out, Run({"volume", "set", "--help"}).out);
    EXPECT_THAT(Run({"help", "volume", "set"}).out, HasSubstr("kivctl volume set"));
    EXPECT_EQ(Run({"help", "call", "StopNetworkSpeaker"}).exitCode, 0);
}

TEST_F(CommandTest, ValuesAreCompleted)
{
    EXPECT_THAT(Offered({"start", "--mode"}), HasSubstr("\nmultiroom\t"));
    EXPECT_THAT(Offered({"mode", "ui", "set"}), HasSubstr("\nsurround\t"));
    EXPECT_THAT(Offered({"mode", "ui", "set", "surround"}), Not(HasSubstr("\nsurround\t")));
    EXPECT_THAT(Offered({"soundbar", "support", "set", "02:4b:49:56:00:b0"}), HasSubstr("\nyes\t"));
    EXPECT_THAT(Offered({"soundbar", "support", "set"}), Not(HasSubstr("\nyes\t")));
}

TEST_F(CommandTest, TheArgumentsOfHelpAreCompleted)
{
    EXPECT_THAT(Offered({"--json", "help"}), HasSubstr("\nvolume\t"));
    EXPECT_THAT(Offered({"help", "volume"}), HasSubstr("\nreset\t"));
    EXPECT_THAT(Offered({"help", "volume"}), Not(HasSubstr("\nvolume\t")));
}

TEST_F(CommandTest, HelpTellsTheCommandsAndTheExitCodes)
{
    const Ended help = Run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* word :
         {"start",  "stop", "surround", "list",     "connect",   "name",        "volume",        "mode",
          "link",   "tone", "soundbar", "enabled",  "monitor",   "atmos",       "node-remove",   "sizes",
          "doctor", "call", "--json",   "--timing", "--timeout", "Exit codes:", "did not answer"}) {
        EXPECT_THAT(help.out, HasSubstr(word)) << word;
    }
    EXPECT_NE(help.out.find("lets the server's events through is doctor's to say"), std::string::npos);
    EXPECT_EQ(Run({"start", "--help"}).exitCode, 0);
    EXPECT_EQ(
        Run({"--version"}).out, "kivctl " + std::to_string(KIV_VERSION_MAJOR) + "." +
                                    std::to_string(KIV_VERSION_MINOR) + "." + std::to_string(KIV_VERSION_MICRO) + "\n");
}

} // namespace
} // namespace kiv::ctl::command_test
