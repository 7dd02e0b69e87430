#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <utility>

using namespace kiv::link;

namespace {

#pragma pack(push, 1)

// The reply to GetSoundbarProtocolVersion.
struct VersionReply {
    std::int32_t version;
    unsigned char soundModes[KIV_SOUND_MODE_LEN];
};

#pragma pack(pop)

} // namespace

void SetSoundbarSupportSoundMode(const unsigned char* pMac, int nIP, int nSupportedOrNot)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready() || call.Refuses(pMac == nullptr, "pMac == NULL")) {
        return;
    }
    KIV_LOG_DEBUG("[%s] Mac[" KIV_MAC_FORMAT "], nSupportedOrNot[%d]", kApiTag, KIV_MAC_BYTES(pMac), nSupportedOrNot);
    Payload payload{Bytes(pMac, NETSPK_MAC_LEN), BytesOf(nIP), BytesOf(nSupportedOrNot)};
    if (!payload) {
        KIV_LOG_ERROR("calloc(NETSPK_MAC_LEN+NETSPK_IP_LEN+sizeof(int)) fail");
        return;
    }
    call.Request("SetSoundbarSupportSoundMode", BytesTuple(std::move(payload)));
}

int GetSoundbarProtocolVersion(
    const unsigned char* soundbarMAC, unsigned char* pSoundModeVersion, int nSoundModeVersionLen)
{
    KIV_LOG_DEBUG("[%s] Enter", kApiTag);
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    if (soundbarMAC == nullptr || pSoundModeVersion == nullptr || nSoundModeVersionLen < 1) {
        KIV_LOG_ERROR(
            "Invalid arguments, soundbarMAC[%p], pSoundModeVersion[%p], nSoundModeVersionLen[%d]",
            static_cast<const void*>(soundbarMAC), static_cast<const void*>(pSoundModeVersion), nSoundModeVersionLen);
        return kApiFailed;
    }
    Payload payload{Bytes(soundbarMAC, NETSPK_MAC_LEN)};
    if (!payload) {
        KIV_LOG_ERROR("calloc(NETSPK_MAC_LEN*sizeof(char)) fail");
        return kApiFailed;
    }
    VariantOwner preset = NoBytes();
    if (!preset) {
        KIV_LOG_ERROR("[%s] param_out is NULL", kApiTag);
        return kApiFailed;
    }
    const ByteReply reply(
        call.Request("GetSoundbarProtocolVersion", BytesTuple(std::move(payload)), std::move(preset)));
    if (!reply) {
        return kApiFailed;
    }
    // An answer that is not a version with its data is a failure, because any number but -1 is a version.
    if (!reply.HasMember()) {
        KIV_LOG_ERROR("pTuple is NULL");
        return kApiFailed;
    }
    const Bytes bytes = reply.Array();
    KIV_LOG_DEBUG("soundmode version length[%zu]", bytes.size());
    if (bytes.data() == nullptr) {
        KIV_LOG_ERROR("pByteArray is NULL");
        return kApiFailed;
    }
    if (bytes.size() != sizeof(VersionReply)) {
        return kApiFailed;
    }
    const auto answer = Front<VersionReply>(bytes);
    CopyUpTo({pSoundModeVersion, static_cast<std::size_t>(nSoundModeVersionLen)}, answer.soundModes);
    return answer.version;
}

bool IsSoundbarSupportSoundMode(const unsigned char* soundbarMAC)
{
    KIV_LOG_DEBUG("[%s] Enter", kApiTag);
    ApiCall call(KIV_HERE);
    if (!call.Ready() || soundbarMAC == nullptr) {
        return false;
    }
    Payload payload{Bytes(soundbarMAC, NETSPK_MAC_LEN)};
    if (!payload) {
        KIV_LOG_ERROR("calloc(NETSPK_MAC_LEN*sizeof(char)) fail");
        return false;
    }
    VariantOwner preset = Sink(g_variant_new("(b)", FALSE));
    if (!preset) {
        KIV_LOG_ERROR("[%s] param_out is NULL", kApiTag);
        return false;
    }
    const Reply reply = call.Request("IsSoundbarSupportSoundMode", BytesTuple(std::move(payload)), std::move(preset));
    return reply && reply.Bool();
}
