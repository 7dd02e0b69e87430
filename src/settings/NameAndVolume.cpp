#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "settings/VolumeRequests.h"

#include <cstring>

using namespace kiv::link;
using namespace kiv::settings;

void SetNetSpkName(const unsigned char* pMac, int nIP, const char* pSpkName)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready() || call.Refuses(pMac == nullptr || pSpkName == nullptr, "pMac == NULL || pSpkName == NULL")) {
        return;
    }
    KIV_LOG_DEBUG(
        "[%s] Mac[" KIV_MAC_FORMAT "], SpkName[%s], strlen(%zu)", kApiTag, KIV_MAC_BYTES(pMac), pSpkName,
        std::strlen(pSpkName));
    call.Request("SetNetSpkName", g_variant_new("(yyyyyyi@s)", KIV_MAC_BYTES(pMac), nIP, Text(pSpkName)));
}

void SetNetSpkVolume(const unsigned char* pMac, int nIP, int nVolume)
{
    KIV_LOG_INFO("[%s] Enter", kApiTag);
    ApiCall call(KIV_HERE);
    if (!call.Ready() || pMac == nullptr) {
        return;
    }
    call.Request("SetNetSpkVolume", g_variant_new("(yyyyyyii)", KIV_MAC_BYTES(pMac), nIP, nVolume));
}

void GetNetSpkVolume(const unsigned char* pMac, int nIP)
{
    KIV_LOG_DEBUG("[%s] Enter", kApiTag);
    ApiCall call(KIV_HERE);
    if (!call.Ready() || pMac == nullptr) {
        return;
    }
    if (!call.Invoke("GetNetSpkVolume", g_variant_new("(yyyyyyi)", KIV_MAC_BYTES(pMac), nIP))) {
        KIV_LOG_ERROR("MethodCall Error");
    }
}

void IncreaseNetSpkVolume(const unsigned char* pMac, int nIP)
{
    m_SetSpkVolume(pMac, nIP, kUp);
}

void DecreaseNetSpkVolume(const unsigned char* pMac, int nIP)
{
    m_SetSpkVolume(pMac, nIP, kDown);
}

void ResetNetSpkVolume(const unsigned char* pMac, int nIP)
{
    m_SetSpkVolume(pMac, nIP, kReset);
}

void ResetAllNetSpkVolume()
{
    KIV_LOG_INFO("[%s] Enter", kApiTag);
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return;
    }
    if (call.Request("ResetAllNetSpkVolume")) {
        KIV_LOG_INFO("ResetAllNetSpkVolume done");
    }
}

void IncreaseNetSpkVolumeList(const std::vector<STNetSpkConfig>& list)
{
    TransformNetSpkList(list, "IncreaseNetSpkVolumeList");
}

void DecreaseNetSpkVolumeList(const std::vector<STNetSpkConfig>& list)
{
    TransformNetSpkList(list, "DecreaseNetSpkVolumeList");
}

void ResetNetSpkVolumeList(const std::vector<STNetSpkConfig>& list)
{
    TransformNetSpkList(list, "ResetNetSpkVolumeList");
}

void GetNetSpkVolumeList(const std::vector<STNetSpkConfig>& list)
{
    TransformNetSpkList(list, "GetNetSpkVolumeList");
}
