#include "KivServiceInterface.h"
#include "link/ApiCall.h"

using namespace kiv::link;

namespace {

// Whatever fails, the answer is no.
bool Ask(const Here& here, const char* question)
{
    const ApiCall call(here);
    if (!call.Ready()) {
        return false;
    }
    VariantOwner preset = Sink(g_variant_new("(b)", TRUE));
    if (!preset) {
        KIV_LOG_AT(here, kLogError, "param_out is NULL");
    }
    const Reply reply = call.Invoke(question, nullptr, std::move(preset));
    if (!reply) {
        KIV_LOG_AT(here, kLogError, "MethodCall Error");
        return false;
    }
    const bool answer = reply.Bool(false);
    KIV_LOG_AT(here, kLogInfo, "b%s[%d]", question, answer);
    return answer;
}

} // namespace

bool CanCancelTavrin()
{
    return Ask(KIV_HERE, "CanCancelTavrin");
}

bool PreSelectTavrin()
{
    return Ask(KIV_HERE, "PreSelectTavrin");
}

bool CanSelectTavrin()
{
    KIV_LOG_DEBUG("Enter");
    return Ask(KIV_HERE, "CanSelectTavrin");
}
