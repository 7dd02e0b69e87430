#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <ctime>
#include <optional>
#include <vector>

using namespace kiv::link;

int StartNetworkSpeaker(int nMode, std::vector<STNetSpkConfig>& list, int nStartReason)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    KIV_LOG_MARK("[%s] START, nMode[%d], nStartReason[%d]", kApiTag, nMode, nStartReason);

    const std::optional<int> modeAnswer =
        call.Answer("SetNetSpkSettingMode", g_variant_new("(ii)", nMode, nStartReason));
    if (!modeAnswer) {
        return kApiFailed;
    }
    if (*modeAnswer == kApiFailed) {
        // The start goes on, although the server refuses the mode.
        KIV_LOG_ERROR("[%s] MethodCall(SetNetSpkSettingMode) Error!", kApiTag);
    }

    Payload payload{BytesOf(list)};
    if (!payload) {
        KIV_LOG_ERROR("[%s] calloc() fail", kApiTag);
        return kApiFailed;
    }
    const Reply reply = call.Invoke("StartNetworkSpeaker", BytesTuple(std::move(payload)));
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error, time(%d)", kApiTag, static_cast<int>(time(nullptr)));
        return kApiFailed;
    }
    const int result = reply.Int(kApiFailed); // another type counts as a failure, as in ApiCall::Answer()
    KIV_LOG_INFO("[%s] result[%d]", kApiTag, result);
    return result;
}

int StopNetworkSpeaker(int nStopType)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    KIV_LOG_MARK("[%s] STOP, nStopType[%d]", kApiTag, nStopType);

    const std::optional<int> stopType = call.Answer("StopNetworkSpeaker", g_variant_new("(i)", nStopType));
    if (stopType) {
        KIV_LOG_INFO("[%s] StopType[%d]", kApiTag, *stopType);
    }
    return stopType.value_or(kApiFailed);
}

int DisableSurround()
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    const std::optional<int> result = call.Answer("DisableSurround");
    if (result) {
        KIV_LOG_INFO("[%s] [%d]", kApiTag, *result);
    }
    return result.value_or(kApiFailed);
}

int GetSurroundChannelNumber()
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    const std::optional<int> number = call.Answer("GetSurroundChannelNumber");
    if (number) {
        KIV_LOG_INFO("[%s] nSurroundChannelNumber[%d]", kApiTag, *number);
    }
    return number.value_or(kApiFailed);
}
