#include "KivServiceInterface.h"
#include "link/ApiCall.h"

#include <optional>

using namespace kiv::link;

namespace {

// Returns nothing if the server gave no answer.
std::optional<bool> Ask(const Here& here, const char* question)
{
    ApiCall call(here);
    return call.Ready() ? call.Ask(question, true) : std::nullopt;
}

} // namespace

bool CanCancelTavrin()
{
    const std::optional<bool> answer = Ask(KIV_HERE, "CanCancelTavrin");
    if (answer) {
        KIV_LOG_INFO("bCanCancelTavrin[%d]", *answer);
    }
    return answer.value_or(false);
}

bool PreSelectTavrin()
{
    const std::optional<bool> answer = Ask(KIV_HERE, "PreSelectTavrin");
    if (answer) {
        KIV_LOG_INFO("bPreSelectTavrin[%d]", *answer);
    }
    return answer.value_or(false);
}

bool CanSelectTavrin()
{
    KIV_LOG_DEBUG("Enter");
    const std::optional<bool> answer = Ask(KIV_HERE, "CanSelectTavrin");
    if (answer) {
        KIV_LOG_INFO("bCanSelectTavrin[%d]", *answer);
    }
    return answer.value_or(false);
}
