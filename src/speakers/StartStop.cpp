#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <ctime>
#include <vector>

using namespace kiv::link;

int StartNetworkSpeaker(int nMode, std::vector<STNetSpkConfig>& list, int nStartReason)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    KIV_LOG_MARK("[%s] START, nMode[%d], nStartReason[%d]", kApiTag, nMode, nStartReason);

    const Reply modeReply = call.Invoke("SetNetSpkSettingMode", g_variant_new("(ii)", nMode, nStartReason));
    if (!modeReply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return kApiFailed;
    }
    if (modeReply.Int(kApiFailed) == kApiFailed) {
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
    const int result = reply.Int(kApiFailed);
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

    const Reply reply = call.Invoke("StopNetworkSpeaker", g_variant_new("(i)", nStopType));
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return kApiFailed;
    }
    const int stopType = reply.Int(kApiFailed);
    KIV_LOG_INFO("[%s] StopType[%d]", kApiTag, stopType);
    return stopType;
}

int DisableSurround()
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    const Reply reply = call.Invoke("DisableSurround");
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return kApiFailed;
    }
    const int result = reply.Int(kApiFailed);
    KIV_LOG_INFO("[%s] [%d]", kApiTag, result);
    return result;
}

int GetSurroundChannelNumber()
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    const Reply reply = call.Invoke("GetSurroundChannelNumber");
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return kApiFailed;
    }
    const int result = reply.Int(kApiFailed);
    KIV_LOG_INFO("[%s] nSurroundChannelNumber[%d]", kApiTag, result);
    return result;
}
