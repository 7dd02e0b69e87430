#include "tools/kivctl/Arguments.h"
#include "tools/kivctl/Bus.h"
#include "tools/kivctl/CallLog.h"
#include "tools/kivctl/Completion.h"
#include <KivServiceInterface.h>

namespace kiv::ctl {
namespace {

Result AnsweredMode(const char* function, int mode)
{
    return mode == -1 || CallFailed() ? Failed(function, mode) : Done(ModeText(mode), {{"result", mode}});
}

constexpr auto kSettingModeGet = Plain([] { return AnsweredMode("GetNetSpkSettingMode", GetNetSpkSettingMode()); });
constexpr auto kUiModeGet = Plain([] { return AnsweredMode("GetTavrinUIMode", GetTavrinUIMode()); });

constexpr auto kUiModeSet = With<int>(
    [](CLI::App& app, int& mode) {
        OfferValues(AddRequired(app, "MODE", mode, ParseMode, kModeDescription), ModeNames());
    },
    [](int mode) { return Answered("SetTavrinUIMode", SetTavrinUIMode(mode)); });

// Asks a question that the library asks only if the server runs. Without the server, the library returns a default,
// which is not an answer.
Result AskRunningServer(const char* function, bool (*question)())
{
    std::string reason;
    if (GetWhetherKivDisabled() || !StartServer(reason)) {
        return NotSent(function, reason);
    }
    const bool answer = question();
    return FirstAttemptFailed() ? NotSent(function) : AnsweredYesOrNo(function, answer);
}

constexpr auto kCanEnter = Plain([] { return AskRunningServer("CanEnterTavrinSettings", CanEnterTavrinSettings); });
constexpr auto kSpeakersEnabled =
    Plain([] { return AskRunningServer("FlagEnableNetworkSpeaker", FlagEnableNetworkSpeaker); });

} // namespace

std::vector<Command> ModeCommands()
{
    return {
        Group(
            "mode", "Get and set the modes of the speaker system",
            {
                {"get", "Ask in which mode the speaker system works", kSettingModeGet},
                Group(
                    "ui", "Get and set the mode of the multi-room settings screen",
                    {
                        {"get", "Ask for the mode of the screen", kUiModeGet},
                        {"set", "Set the mode of the screen", kUiModeSet},
                    }),
                {"can-enter", "Ask whether the multi-room settings may be entered", kCanEnter},
                {"enabled", "Ask whether network speakers are enabled", kSpeakersEnabled},
            }),
    };
}

std::vector<Command> ModeFunctions()
{
    return {
        {"SetTavrinUIMode", "Set the mode of the multi-room settings screen", kUiModeSet},
        {"GetTavrinUIMode", "Ask for the mode of the multi-room settings screen", kUiModeGet},
        {"GetNetSpkSettingMode", "Ask in which mode the speaker system works", kSettingModeGet},
        {"CanEnterTavrinSettings", "Ask whether the multi-room settings may be entered", kCanEnter},
        {"FlagEnableNetworkSpeaker", "Ask whether network speakers are enabled", kSpeakersEnabled},
    };
}

} // namespace kiv::ctl
