#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <ctime>

using namespace kiv::link;

int GetSpksConnectionTypeByID(int nSpeakerID)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    return call.AnswerOrZero("GetSpksConnectionTypeByID", g_variant_new("(i)", nSpeakerID));
}

int GetSpksConnectionType(std::vector<STNetSpkConfig>* pList)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready() || call.Refuses(pList == nullptr, "pList == NULL")) {
        return kApiFailed;
    }
    Payload payload{BytesOf(*pList)};
    if (!payload) {
        KIV_LOG_ERROR("[%s] calloc() fail", kApiTag);
        return 0;
    }
    const Reply reply = call.Invoke("GetSpksConnectionType", BytesTuple(std::move(payload)));
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error, time(%ld)", kApiTag, static_cast<long>(time(nullptr)));
        return kApiFailed;
    }
    const int result = reply.Int(kApiFailed); // another type counts as a failure, as in ApiCall::Answer()
    KIV_LOG_INFO("[%s] result[%d]", kApiTag, result);
    return result;
}
