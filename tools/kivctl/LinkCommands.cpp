#include "tools/kivctl/Command.h"
#include <KivServiceInterface.h>

namespace kiv::ctl {
namespace {

constexpr auto kCanCancel = Plain([] { return AnsweredYesOrNo("CanCancelTavrin", CanCancelTavrin()); });
constexpr auto kPreSelect = Plain([] { return AnsweredYesOrNo("PreSelectTavrin", PreSelectTavrin()); });
constexpr auto kCanSelect = Plain([] { return AnsweredYesOrNo("CanSelectTavrin", CanSelectTavrin()); });

} // namespace

std::vector<Command> LinkCommands()
{
    return {
        Group(
            "link", "Ask about the multi-room link, and preselect it",
            {
                {"can-cancel", "Ask whether the link may be cancelled", kCanCancel},
                {"pre-select", "Preselect the link, and show whether it is preselected", kPreSelect},
                {"can-select", "Ask whether the link may be selected", kCanSelect},
            }),
    };
}

std::vector<Command> LinkFunctions()
{
    return {
        {"CanCancelTavrin", "Ask whether the multi-room link may be cancelled", kCanCancel},
        {"PreSelectTavrin", "Preselect the multi-room link, and show whether it is preselected", kPreSelect},
        {"CanSelectTavrin", "Ask whether the multi-room link may be selected", kCanSelect},
    };
}

} // namespace kiv::ctl
