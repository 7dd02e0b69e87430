#include "Command.h"
#include <KivServiceInterface.h>

namespace kiv::ctl {
namespace {

auto Ask(const char* function, bool (*question)())
{
    return [function, question](CLI::App&) -> Action {
        return [function, question](const Output&) { return AnsweredYesOrNo(function, question()); };
    };
}

} // namespace

std::vector<Command> LinkCommands()
{
    return {
        {"link",
         "Choosing the multi-room link",
         nullptr,
         {
             {"can-cancel", "Ask whether it may be cancelled", Ask("CanCancelTavrin", CanCancelTavrin)},
             {"pre-select", "Preselect it, and tell whether it is", Ask("PreSelectTavrin", PreSelectTavrin)},
             {"can-select", "Ask whether it may be selected", Ask("CanSelectTavrin", CanSelectTavrin)},
         }},
    };
}

std::vector<Command> LinkFunctions()
{
    return {
        {"CanCancelTavrin", "Ask whether the multi-room link may be cancelled",
         Ask("CanCancelTavrin", CanCancelTavrin)},
        {"PreSelectTavrin", "Preselect it, and tell whether it is", Ask("PreSelectTavrin", PreSelectTavrin)},
        {"CanSelectTavrin", "Ask whether it may be selected", Ask("CanSelectTavrin", CanSelectTavrin)},
    };
}

} // namespace kiv::ctl
