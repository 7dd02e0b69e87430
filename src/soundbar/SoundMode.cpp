#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <algorithm>
#include <optional>
#include <utility>

using namespace kiv::link;

namespace {

#pragma pack(push, 1)

// The reply to GetSoundbarDeviceInfo.
struct DeviceReply {
    unsigned char identity[KIV_SOUNDBAR_DEVICE_INFO_LEN];
    std::int32_t number;
};

// The reply to GetSoundbarSoundMode.
struct SoundModeReply {
    unsigned char identity[KIV_SOUNDBAR_DEVICE_INFO_LEN];
    std::int32_t length;
    unsigned char soundMode[KIV_SOUND_MODE_LEN];
};

#pragma pack(pop)

// A sound mode that begins with 1 must have 5 or 13 bytes.
bool IsCorrupted(const unsigned char* soundmodeData, int soundModeDataLen)
{
    return soundmodeData[0] == 1 && soundModeDataLen != 5 && soundModeDataLen != 13;
}

} // namespace

void SetSoundbarSoundMode(const unsigned char* pMac, int nIP, const unsigned char* pData, int nDataLen)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready() || call.Refuses(pMac == nullptr || pData == nullptr, "pMac == NULL || pData == NULL")) {
        return;
    }
    KIV_LOG_DEBUG("[%s] Mac[" KIV_MAC_FORMAT "], nDataLen[%d]", kApiTag, KIV_MAC_BYTES(pMac), nDataLen);
    // A negative length is handled like one that cannot be allocated.
    const auto dataLength = static_cast<unsigned>(std::max(nDataLen, 0));
    Payload payload{Bytes(pMac, NETSPK_MAC_LEN), BytesOf(nIP), Bytes(pData, dataLength)};
    if (nDataLen < 0 || !payload) {
        KIV_LOG_ERROR("calloc(NETSPK_MAC_LEN+NETSPK_IP_LEN+nDataLen[%d]) fail", nDataLen);
        return;
    }
    call.Request("SetSoundbarSoundMode", BytesTuple(std::move(payload)));
}

int GetSoundbarSoundMode(unsigned char* soundbarDeviceInfo, unsigned char* soundmodeData)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    const std::optional<ByteReply> reply = call.AskForBytes("GetSoundbarSoundMode", "param_out_val == NULL");
    if (!reply) {
        return kApiFailed;
    }
    if (const std::optional<int> result = reply->ResultWithoutMember()) {
        return *result;
    }
    if (!reply->HasBytes() || reply->Array().size() < sizeof(SoundModeReply)) {
        return 0; // an answer that is no sound mode, or has another type, tells of none
    }
    const auto answer = Front<SoundModeReply>(reply->Array());
    std::ranges::copy(answer.identity, soundbarDeviceInfo);
    std::ranges::copy(answer.soundMode, soundmodeData);
    const int soundModeDataLen = answer.length;
    const unsigned char* d = answer.soundMode;
    KIV_LOG_INFO(
        "[%s] soundbarDeviceInfo[" KIV_MAC_FORMAT "], soundModeDataLen[%d], soundmodeData["
        "%02x%02x%02x%02x%02x-%02x%02x%02x%02x%02x-%02x%02x%02x%02x%02x-%02x%02x%02x%02x%02x]",
        kApiTag, KIV_MAC_BYTES(answer.identity), soundModeDataLen, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7], d[8],
        d[9], d[10], d[11], d[12], d[13], d[14], d[15], d[16], d[17], d[18], d[19]);
    if (IsCorrupted(answer.soundMode, soundModeDataLen)) {
        KIV_LOG_ERROR("soundmodeData is corrupted, So ignore it");
        return 0;
    }
    return soundModeDataLen;
}

int GetSoundbarDeviceInfo(unsigned char* soundbarDeviceInfo)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    const ByteReply reply(call.Invoke("GetSoundbarDeviceInfo", g_variant_new("(i)", 0), NoBytes()));
    if (const std::optional<int> result = reply.ResultWithoutMember()) {
        return *result;
    }
    const Bytes bytes = reply.Array();
    if (bytes.data() == nullptr) {
        return 0; // an answer that is no soundbar, or has another type, tells of none
    }
    // The line is logged whatever the length of the reply is. Missing bytes are logged as zero.
    const auto answer = Front<DeviceReply>(bytes);
    const unsigned char* identity = answer.identity;
    KIV_LOG_DEBUG(
        "elenum[%zu], soundbarDeviceInfo[" KIV_MAC_FORMAT "], [%u.%u.%u.%u]", bytes.size(), KIV_MAC_BYTES(identity),
        identity[6], identity[7], identity[8], identity[9]);
    if (bytes.size() < sizeof answer) {
        return 0;
    }
    std::ranges::copy(answer.identity, soundbarDeviceInfo);
    return answer.number;
}
