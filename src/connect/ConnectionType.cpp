#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <ctime>

using namespace kiv::link;

int GetSpksConnectionTypeByID(int nSpeakerID)
{
    const ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    return call.AnswerOrZero("GetSpksConnectionTypeByID", g_variant_new("(i)", nSpeakerID));
}

int GetSpksConnectionType(std::vector<STNetSpkConfig>* pList)
{
    const ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    if (pList == nullptr) {
        KIV_LOG_ERROR("(%s) return", "pList == NULL");
        return kApiFailed;
    }
    const Bytes records = BytesOf(*pList);
    if (!call.CanSend(records.size())) {
        return kApiFailed;
    }
    const Payload payload{records};
    if (!payload) {
        KIV_LOG_ERROR("[%s] calloc() fail", kApiTag);
        return 0;
    }
    const Reply reply = call.Invoke("GetSpksConnectionType", BytesTuple(payload));
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error, time(%ld)", kApiTag, static_cast<long>(time(nullptr)));
        return kApiFailed;
    }
    const int result = reply.Int(kApiFailed);
    KIV_LOG_INFO("[%s] result[%d]", kApiTag, result);
    return result;
}
