#include "settings/VolumeRequests.h"

#include "link/ApiCall.h"
#include "link/Bytes.h"

using namespace kiv::link;

namespace kiv::settings {

namespace {

// Log lines show these bytes as signed numbers: 0xa4 is ffffffa4 in hexadecimal.
int Signed(unsigned char byte)
{
    return static_cast<signed char>(byte);
}

const char* MethodOf(int op)
{
    switch (op) {
    case kUp:
        return "IncreaseNetSpkVolume";
    case kDown:
        return "DecreaseNetSpkVolume";
    default:
        return "ResetNetSpkVolume";
    }
}

} // namespace

void m_SetSpkVolume(const unsigned char* pMac, int nIP, int op)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready() || call.Refuses(pMac == nullptr, "pMac == NULL")) {
        return;
    }
    const auto octet = [ip = static_cast<unsigned>(nIP)](unsigned index) {
        return static_cast<unsigned>(Signed(static_cast<unsigned char>(ip >> 8 * index)));
    };
    KIV_LOG_INFO(
        "[%s] Mac[" KIV_MAC_FORMAT "], IP[%u.%u.%u.%u]", kApiTag, KIV_MAC_BYTES(pMac), octet(0), octet(1), octet(2),
        octet(3));
    call.Request(MethodOf(op), g_variant_new("(yyyyyyi)", KIV_MAC_BYTES(pMac), nIP));
}

void TransformNetSpkList(const std::vector<STNetSpkConfig>& list, const char* methodName)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return;
    }
    Payload payload{BytesOf(list)};
    const int count = static_cast<int>(list.size());
    if (!payload) {
        KIV_LOG_ERROR("[%s] calloc(%d*%zu) fail", kApiTag, count, sizeof(STNetSpkConfig));
        return;
    }
    for (int i = 0; i < count; ++i) {
        const STNetSpkConfig& speaker = list[static_cast<std::size_t>(i)];
        const unsigned char* mac = speaker.mac;
        KIV_LOG_INFO(
            "[%s] Speaker[%d]: MAC[" KIV_MAC_FORMAT "] CONFIG[%d]", kApiTag, i, Signed(mac[0]), Signed(mac[1]),
            Signed(mac[2]), Signed(mac[3]), Signed(mac[4]), Signed(mac[5]), speaker.nConfig);
    }
    if (!call.Invoke(methodName, BytesTuple(std::move(payload)))) {
        KIV_LOG_ERROR("[%s] MethodCall(%s) Error", kApiTag, methodName);
    }
    KIV_LOG_INFO("free");
}

} // namespace kiv::settings
