#include "KivServiceInterface.h"
#include "link/ApiCall.h"

using namespace kiv::link;

void StartNetSpkTest(const unsigned char* pMac, int nTestParam, int nChType, int nTestExtra)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready() || call.Refuses(pMac == nullptr, "pMac == NULL")) {
        return;
    }
    KIV_LOG_INFO("[%s] MAC[" KIV_MAC_FORMAT "], nChType[%d], [%d]", kApiTag, KIV_MAC_BYTES(pMac), nChType, nTestExtra);
    call.Request("StartNetSpkTest", g_variant_new("(yyyyyyiii)", KIV_MAC_BYTES(pMac), nTestParam, nChType, nTestExtra));
}

// Unlike StartNetSpkTest(), checks its arguments before it calls the server.
void StopNetSpkTest(const unsigned char* pMac, int nTestParam, int nTestExtra)
{
    ApiCall call(KIV_HERE);
    if (call.Refuses(pMac == nullptr, "pMac == NULL")) {
        return;
    }
    KIV_LOG_INFO("[%s] Enter, MAC[" KIV_MAC_FORMAT "], [%d]", kApiTag, KIV_MAC_BYTES(pMac), nTestExtra);
    if (!call.Ready()) {
        return;
    }
    call.Request("StopNetSpkTest", g_variant_new("(yyyyyyii)", KIV_MAC_BYTES(pMac), nTestParam, nTestExtra));
}
