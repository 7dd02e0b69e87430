#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Launch.h"

#include <optional>
#include <utility>

using namespace kiv::link;

namespace {

// GetTavrinUIMode() and GetNetSpkSettingMode() report the multi-room mode as surround.
int SurroundForMultiRoom(const Here& here)
{
    KIV_LOG_AT(here, kLogError, "[%s] Not support NETSPKSETTING_MULTIROOM, return NETSPKSETTING_SURROUND", kApiTag);
    return NETSPKSETTING_SURROUND;
}

} // namespace

int SetTavrinUIMode(int mode)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    return call.AnswerOrFailed("SetTavrinUIMode", g_variant_new("(i)", mode));
}

int GetTavrinUIMode()
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    const int mode = call.AnswerOrFailed("GetTavrinUIMode");
    if (mode == kApiFailed) {
        KIV_LOG_ERROR("[%s] Cannot get TavrinUIMode from NAM, return NETSPKSETTING_SURROUND", kApiTag);
        return NETSPKSETTING_SURROUND;
    }
    return mode == NETSPKSETTING_MULTIROOM ? SurroundForMultiRoom(KIV_HERE) : mode;
}

int GetNetSpkSettingMode()
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    int mode = call.AnswerOrFailed("GetNetSpkSettingMode");
    if (mode == kApiFailed) {
        KIV_LOG_ERROR(
            "[%s] Cannot get speakersystem mode from NAM, just return default value(NETSPKSETTING_MULTIROOM)", kApiTag);
        mode = NETSPKSETTING_MULTIROOM;
    }
    return mode == NETSPKSETTING_MULTIROOM ? SurroundForMultiRoom(KIV_HERE) : mode;
}

bool CanEnterTavrinSettings()
{
    const ApiCall call(KIV_HERE, s_pre_checking());
    if (!call.HasConnection()) {
        KIV_LOG_INFO("[%s] bCanEnterTavrinSettings[%d]", kApiTag, false);
        return false;
    }
    const std::optional<bool> answer = call.Ask("CanEnterTavrinSettings", false);
    if (answer) {
        KIV_LOG_INFO("bCanEnterTavrinSettings[%d]", *answer);
    }
    return answer.value_or(false);
}

bool FlagEnableNetworkSpeaker()
{
    KIV_LOG_DEBUG("[%s] Enter", kApiTag);
    const ApiCall call(KIV_HERE, s_pre_checking());
    if (!call.HasConnection()) {
        // Without a connection, network speakers count as enabled.
        KIV_LOG_INFO("[%s] bEnableNetworkSpeaker[%d]", kApiTag, true);
        return true;
    }
    VariantOwner preset = Sink(g_variant_new("(b)", TRUE));
    if (!preset) {
        KIV_LOG_ERROR("[%s] param_out is NULL", kApiTag);
    }
    const Reply reply = call.Request("FlagEnableNetworkSpeaker", nullptr, std::move(preset));
    if (!reply) {
        return false;
    }
    const bool answer = reply.Bool();
    KIV_LOG_INFO("[%s] bEnableNetworkSpeaker[%d]", kApiTag, answer);
    return answer;
}
