#include "kivctl/KivctlTest.h"

namespace kiv::ctl::mode_test {
namespace {

using ModeTest = KivctlTest;

TEST_F(ModeTest, ModesAreNamed)
{
    ExpectOutput({"mode", "get"}, "80 (surround)");
    ExpectJson({"mode", "ui", "get"}, {{"result", 80}});
    SetFault("GetNetSpkSettingMode", "reply", "<(7,)>");
    ExpectOutput({"mode", "get"}, "7");
    ExpectCalls({"GetNetSpkSettingMode()", "GetTavrinUIMode()", "GetNetSpkSettingMode()"});
}

TEST_F(ModeTest, UiSetTakesNamesAndNumbers)
{
    ExpectOutput({"mode", "ui", "set", "multiroom"}, "the server answered 81");
    ExpectJson({"mode", "ui", "set", "surround"}, {{"result", 80}});
    ExpectOutput({"mode", "ui", "set", "-7"}, "the server answered -7");
    ExpectOutput({"mode", "ui", "get"}, "-7");
    ExpectCalls({"SetTavrinUIMode(81,)", "SetTavrinUIMode(80,)", "SetTavrinUIMode(-7,)", "GetTavrinUIMode()"});
}

TEST_F(ModeTest, NoAnswerIsNotTakenForOne)
{
    Break("check_dbus_connection");
    for (const char* question : {"enabled", "can-enter"}) {
        ExpectFailure({"mode", question}, 1, "the network-speaker server answers with the error org.example.Broken");
    }
}

TEST_F(ModeTest, AFailedSetIsNamed)
{
    Break("SetTavrinUIMode");
    ExpectFailure({"mode", "ui", "set", "80"}, 1, "SetTavrinUIMode returned -1: " + kBroken);
}

TEST_F(ModeTest, EntryFlagsStartTheServer)
{
    // No client has called the server before.
    ExpectOutput({"mode", "enabled"}, "yes");
    ExpectOutput({"mode", "can-enter"}, "yes");
    ExpectJson({"mode", "enabled"}, {{"result", true}});
    ExpectCalls({"FlagEnableNetworkSpeaker()", "CanEnterTavrinSettings()", "FlagEnableNetworkSpeaker()"});
    SetFault("FlagEnableNetworkSpeaker", "reply", "<(false,)>");
    SetFault("CanEnterTavrinSettings", "reply", "<(false,)>");
    ExpectOutput({"mode", "enabled"}, "no");
    ExpectJson({"mode", "can-enter"}, {{"result", false}});
}

TEST_F(ModeTest, AModeThatTheLibraryMakesUpIsAFailure)
{
    for (const auto& [command, method] : {
             std::pair(Arguments{"mode", "get"}, "GetNetSpkSettingMode"),
             std::pair(Arguments{"mode", "ui", "get"}, "GetTavrinUIMode"),
         }) {
        Break(method);
        ExpectFailure(command, 1, method + std::string(" returned 80: " + kBroken));
        SetFault(method, "reply", "<(-1,)>");
        ExpectFailure(command, 1, method + std::string(" returned 80: the server answered -1"));
        SetFault(method, "reply", "<(81,)>");
        ExpectOutput(command, "80 (surround)");
    }
}

TEST_F(ModeTest, AnEntryFlagThatTheLibraryMakesUpIsAFailure)
{
    Break("FlagEnableNetworkSpeaker");
    SetFault("CanEnterTavrinSettings", "reply", "<('text',)>");
    ExpectFailure({"mode", "enabled"}, 1, "FlagEnableNetworkSpeaker returned false: " + kBroken);
    ExpectFailure(
        {"mode", "can-enter"}, 1,
        "CanEnterTavrinSettings returned false: the answer must be of the D-Bus type (b), got (s)");
    // Without an id for this process, the library sends no further call.
    Break("check_dbus_connection");
    ExpectFailure(
        {"mode", "enabled"}, 1,
        "FlagEnableNetworkSpeaker: the network-speaker server answers with the error org.example.Broken");
}

TEST_F(ModeTest, LinkQuestionsAreAnswered)
{
    for (const auto& [command, method] :
         {std::pair("can-cancel", "CanCancelTavrin"), std::pair("pre-select", "PreSelectTavrin"),
          std::pair("can-select", "CanSelectTavrin")}) {
        SCOPED_TRACE(command);
        SetFault(method, "reply", "<(true,)>");
        ExpectOutput({"link", command}, "yes");
        ExpectJson({"link", command}, {{"result", true}});
        SetFault(method, "reply", "<(false,)>");
        ExpectOutput({"link", command}, "no");
        ExpectJson({"link", command}, {{"result", false}});
        EXPECT_EQ(Calls().back(), method + std::string("()"));
    }
}

TEST_F(ModeTest, BadArgumentsSendNothing)
{
    ExpectRefused({
        {{"mode", "ui", "set"}, "MODE"},
        {{"mode", "ui", "set", "Surround"},
         "MODE: must be multiroom (81), surround (80) or another 32-bit integer, got \"Surround\""},
        {{"mode", "get", "80"}, "80"},
        {{"link", "can-cancel", "it"}, "it"},
    });
}

} // namespace
} // namespace kiv::ctl::mode_test
