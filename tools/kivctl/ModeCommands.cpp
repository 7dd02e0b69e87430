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

constexpr auto kCanCancelLink = Plain([] { return AnsweredYesOrNo("CanCancelTavrin", CanCancelTavrin()); });
constexpr auto kPreSelectLink = Plain([] { return AnsweredYesOrNo("PreSelectTavrin", PreSelectTavrin()); });
constexpr auto kCanSelectLink = Plain([] { return AnsweredYesOrNo("CanSelectTavrin", CanSelectTavrin()); });

} // namespace

std::vector<Command> ModeCommands()
{
    return {
        Group(
            "mode", "Get and set the modes of the speaker system",
            {
                {"get", "Ask in which mode the speaker system works", kSettingModeGet, "GetNetSpkSettingMode"},
                Group(
                    "ui", "Get and set the mode of the multi-room settings screen",
                    {
                        {"get", "Ask for the mode of the multi-room settings screen", kUiModeGet, "GetTavrinUIMode"},
                        {"set", "Set the mode of the multi-room settings screen", kUiModeSet, "SetTavrinUIMode"},
                    }),
                {"can-enter", "Ask whether the multi-room settings may be entered", kCanEnter,
                 "CanEnterTavrinSettings"},
                {"enabled", "Ask whether network speakers are enabled", kSpeakersEnabled, "FlagEnableNetworkSpeaker"},
            }),
        Group(
            "link", "Ask about the multi-room link, and preselect it",
            {
                {"can-cancel", "Ask whether the multi-room link may be cancelled", kCanCancelLink, "CanCancelTavrin"},
                {"pre-select", "Preselect the multi-room link, and show whether it is preselected", kPreSelectLink,
                 "PreSelectTavrin"},
                {"can-select", "Ask whether the multi-room link may be selected", kCanSelectLink, "CanSelectTavrin"},
            }),
    };
}

} // namespace kiv::ctl
