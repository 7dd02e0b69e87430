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
         "Ask about the multi-room link, and preselect it",
         nullptr,
         {
             {"can-cancel", "Ask whether the link may be cancelled", Ask("CanCancelTavrin", CanCancelTavrin)},
             {"pre-select", "Preselect the link, and show whether it is preselected",
              Ask("PreSelectTavrin", PreSelectTavrin)},
             {"can-select", "Ask whether the link may be selected", Ask("CanSelectTavrin", CanSelectTavrin)},
         }},
    };
}

std::vector<Command> LinkFunctions()
{
    return {
        {"CanCancelTavrin", "Ask whether the multi-room link may be cancelled",
         Ask("CanCancelTavrin", CanCancelTavrin)},
        {"PreSelectTavrin", "Preselect the multi-room link, and show whether it is preselected",
         Ask("PreSelectTavrin", PreSelectTavrin)},
        {"CanSelectTavrin", "Ask whether the multi-room link may be selected", Ask("CanSelectTavrin", CanSelectTavrin)},
    };
}

} // namespace kiv::ctl
