#include "KivServiceInterface.h"
#include "link/ApiCall.h"

#include <optional>
#include <utility>

using namespace kiv::link;

namespace {

// Returns nothing if the server gave no answer.
std::optional<bool> Ask(const Here& here, const char* question)
{
    ApiCall call(here);
    if (!call.Ready()) {
        return std::nullopt;
    }
    VariantOwner preset = Sink(g_variant_new("(b)", TRUE));
    if (!preset) {
        KIV_LOG_AT(here, kLogError, "param_out is NULL");
    }
    const Reply reply = call.Invoke(question, nullptr, std::move(preset));
    if (!reply) {
        KIV_LOG_AT(here, kLogError, "MethodCall Error");
        return std::nullopt;
    }
    return reply.Bool(false);
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
