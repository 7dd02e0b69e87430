#include "KivServiceInterface.h"
#include "link/ApiCall.h"

using namespace kiv::link;

void StartNetSpkTest(const unsigned char* pMac, int nTestParam, int nChType, int nTestExtra)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return;
    }
    if (pMac == nullptr) {
        KIV_LOG_ERROR("(%s) return", "pMac == NULL");
        return;
    }
    KIV_LOG_INFO("[%s] MAC[" KIV_MAC_FORMAT "], nChType[%d], [%d]", kApiTag, KIV_MAC_BYTES(pMac), nChType, nTestExtra);
    if (!call.Invoke(
            "StartNetSpkTest", g_variant_new("(yyyyyyiii)", KIV_MAC_BYTES(pMac), nTestParam, nChType, nTestExtra))) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
    }
}

// Unlike StartNetSpkTest(), checks its arguments before it calls the server.
void StopNetSpkTest(const unsigned char* pMac, int nTestParam, int nTestExtra)
{
    if (pMac == nullptr) {
        KIV_LOG_ERROR("(%s) return", "pMac == NULL");
        return;
    }
    KIV_LOG_INFO("[%s] Enter, MAC[" KIV_MAC_FORMAT "], [%d]", kApiTag, KIV_MAC_BYTES(pMac), nTestExtra);
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return;
    }
    if (!call.Invoke("StopNetSpkTest", g_variant_new("(yyyyyyii)", KIV_MAC_BYTES(pMac), nTestParam, nTestExtra))) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
    }
}
