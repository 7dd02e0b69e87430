#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <string.h> // NOLINT(modernize-deprecated-headers): strnlen() is POSIX

using namespace kiv::link;

namespace {

// Only the first bytes of an identifier are sent.
constexpr std::size_t kIdLength = 5;

} // namespace

int ConnectNetworkSpeakerByMobile(const unsigned char* pParam, unsigned int nParamLen)
{
    if (pParam == nullptr) {
        KIV_LOG_ERROR("NULL param");
        return kApiFailed;
    }
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    Payload payload{BytesOf(nParamLen), Bytes(pParam, nParamLen)};
    if (call.Refuses(!payload, "pParam == NULL")) {
        return kApiFailed;
    }
    const int result = call.AnswerOrFailed("ConnectNetworkSpeakerByMobile", BytesTuple(std::move(payload)));
    KIV_LOG_INFO("return value[%d]", result);
    return result;
}

int Vireon_StartNetworkSpeakerByID(const char* pszID, int nFirst, int nSecond, int nThird)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    if (pszID == nullptr || strnlen(pszID, kIdLength) < kIdLength) {
        return 0;
    }
    // The server's method takes the first two numbers in the opposite order.
    return call.AnswerOrZero(
        "Vireon_StartNetworkSpeakerByID",
        g_variant_new("(yyyyyiii)", pszID[0], pszID[1], pszID[2], pszID[3], pszID[4], nSecond, nFirst, nThird));
}

int StartNetworkSpeakerByID(int nFirst, int nSecond, int nThird)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    // The server's method takes the first two numbers in the opposite order.
    return call.AnswerOrZero("StartNetworkSpeakerByID", g_variant_new("(iii)", nSecond, nFirst, nThird));
}
