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
    const std::optional<bool> bCanCancelTavrin = Ask(KIV_HERE, "CanCancelTavrin");
    if (bCanCancelTavrin) {
        KIV_LOG_INFO("bCanCancelTavrin[%d]", *bCanCancelTavrin);
    }
    return bCanCancelTavrin.value_or(false);
}

bool PreSelectTavrin()
{
    const std::optional<bool> bPreSelectTavrin = Ask(KIV_HERE, "PreSelectTavrin");
    if (bPreSelectTavrin) {
        KIV_LOG_INFO("bPreSelectTavrin[%d]", *bPreSelectTavrin);
    }
    return bPreSelectTavrin.value_or(false);
}

bool CanSelectTavrin()
{
    KIV_LOG_DEBUG("Enter");
    const std::optional<bool> bCanSelectTavrin = Ask(KIV_HERE, "CanSelectTavrin");
    if (bCanSelectTavrin) {
        KIV_LOG_INFO("bCanSelectTavrin[%d]", *bCanSelectTavrin);
    }
    return bCanSelectTavrin.value_or(false);
}
