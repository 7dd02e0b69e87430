#include "Arguments.h"
#include "Bus.h"
#include "CallLog.h"
#include "Completion.h"
#include <KivServiceInterface.h>

#include <memory>

namespace kiv::ctl {
namespace {

Result AnsweredMode(const char* function, int mode)
{
    return mode == -1 || CallFailed() ? Failed(function, mode) : Done(ModeText(mode), {{"result", mode}});
}

Action Get(CLI::App&)
{
    return [](const Output&) { return AnsweredMode("GetNetSpkSettingMode", GetNetSpkSettingMode()); };
}

Action UiGet(CLI::App&)
{
    return [](const Output&) { return AnsweredMode("GetTavrinUIMode", GetTavrinUIMode()); };
}

Action UiSet(CLI::App& app)
{
    const auto mode = std::make_shared<int>(0);
    OfferValues(AddRequired(app, "MODE", *mode, ParseMode, kModeDescription), ModeNames());
    return [mode](const Output&) { return Answered("SetTavrinUIMode", SetTavrinUIMode(*mode)); };
}

// Asks a question that the library asks only if the server runs. Without the server, the library returns a default,
// which is not an answer.
auto AskRunningServer(const char* function, bool (*question)())
{
    return [function, question](CLI::App&) -> Action {
        return [function, question](const Output&) {
            std::string reason;
            if (GetWhetherKivDisabled() || !StartServer(reason)) {
                return NotSent(function, reason);
            }
            const bool answer = question();
            return FirstAttemptFailed() ? NotSent(function) : AnsweredYesOrNo(function, answer);
        };
    };
}

} // namespace

std::vector<Command> ModeCommands()
{
    return {
        {"mode",
         "Get and set the modes of the speaker system",
         nullptr,
         {
             {"get", "Ask in which mode the speaker system works", Get},
             {"ui",
              "Get and set the mode of the multi-room settings screen",
              nullptr,
              {
                  {"get", "Ask for the mode of the screen", UiGet},
                  {"set", "Set the mode of the screen", UiSet},
              }},
             {"can-enter", "Ask whether the multi-room settings may be entered",
              AskRunningServer("CanEnterTavrinSettings", CanEnterTavrinSettings)},
             {"enabled", "Ask whether network speakers are enabled",
              AskRunningServer("FlagEnableNetworkSpeaker", FlagEnableNetworkSpeaker)},
         }},
    };
}

std::vector<Command> ModeFunctions()
{
    return {
        {"SetTavrinUIMode", "Set the mode of the multi-room settings screen", UiSet},
        {"GetTavrinUIMode", "Ask for the mode of the multi-room settings screen", UiGet},
        {"GetNetSpkSettingMode", "Ask in which mode the speaker system works", Get},
        {"CanEnterTavrinSettings", "Ask whether the multi-room settings may be entered",
         AskRunningServer("CanEnterTavrinSettings", CanEnterTavrinSettings)},
        {"FlagEnableNetworkSpeaker", "Ask whether network speakers are enabled",
         AskRunningServer("FlagEnableNetworkSpeaker", FlagEnableNetworkSpeaker)},
    };
}

} // namespace kiv::ctl
