#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <cstring>

using namespace kiv::link;

namespace {

// Identifiers are sent as their first bytes.
constexpr std::size_t kIdLength = 5;

int StartByID(const ApiCall& call, const Here& here, const char* method, GVariant* input)
{
    const Reply reply = call.Invoke(method, input);
    if (!reply) {
        KIV_LOG_AT(here, kLogError, "[%s] MethodCall(%s) Error", kApiTag, method);
        return 0;
    }
    const int result = reply.Int(kApiFailed);
    KIV_LOG_AT(here, kLogInfo, "[%s] result[%d]", kApiTag, result);
    return result;
}

} // namespace

int ConnectNetworkSpeakerByMobile(const unsigned char* pParam, unsigned int nParamLen)
{
    if (pParam == nullptr) {
        KIV_LOG_ERROR("NULL param");
        return kApiFailed;
    }
    const ApiCall call(KIV_HERE);
    if (!call.Ready() || !call.CanSend(sizeof nParamLen + std::uint64_t{nParamLen})) {
        return kApiFailed;
    }
    const Payload payload{BytesOf(nParamLen), Bytes(pParam, nParamLen)};
    if (!payload) {
        KIV_LOG_ERROR("(%s) return", "pParam == NULL");
        return kApiFailed;
    }
    const Reply reply = call.Invoke("ConnectNetworkSpeakerByMobile", BytesTuple(payload));
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
    }
    const int result = reply.Int(kApiFailed);
    KIV_LOG_INFO("return value[%d]", result);
    return result;
}

int Vireon_StartNetworkSpeakerByID(const char* pszID, int nFirst, int nSecond, int nThird)
{
    const ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    if (pszID == nullptr || strnlen(pszID, kIdLength) < kIdLength) {
        return 0;
    }
    // The server takes the first two numbers the other way round.
    return StartByID(
        call, KIV_HERE, "Vireon_StartNetworkSpeakerByID",
        g_variant_new("(yyyyyiii)", pszID[0], pszID[1], pszID[2], pszID[3], pszID[4], nSecond, nFirst, nThird));
}

int StartNetworkSpeakerByID(int nFirst, int nSecond, int nThird)
{
    const ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    // Here, too.
    return StartByID(call, KIV_HERE, "StartNetworkSpeakerByID", g_variant_new("(iii)", nSecond, nFirst, nThird));
}
