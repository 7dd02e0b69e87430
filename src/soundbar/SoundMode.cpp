#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

using namespace kiv::link;

namespace {

constexpr std::size_t kIdentityLength = KIV_SOUNDBAR_DEVICE_INFO_LEN;

// Offsets in the server's replies about the soundbar: its identity, an integer and, in the reply to
// GetSoundbarSoundMode, the sound mode.
constexpr std::size_t kIntegerAt = kIdentityLength;
constexpr std::size_t kDeviceInfoLength = kIntegerAt + sizeof(std::int32_t);
constexpr std::size_t kSoundModeAt = kDeviceInfoLength;
constexpr std::size_t kSoundModeReplyLength = kSoundModeAt + KIV_SOUND_MODE_LEN;

// A sound mode that begins with 1 must have 5 or 13 bytes.
bool IsCorrupted(const unsigned char* soundmodeData, int soundModeDataLen)
{
    return soundmodeData[0] == 1 && soundModeDataLen != 5 && soundModeDataLen != 13;
}

} // namespace

void SetSoundbarSoundMode(const unsigned char* pMac, int nIP, const unsigned char* pData, int nDataLen)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return;
    }
    if (pMac == nullptr || pData == nullptr) {
        KIV_LOG_ERROR("(%s) return", "pMac == NULL || pData == NULL");
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
    if (!call.Invoke("SetSoundbarSoundMode", BytesTuple(std::move(payload)))) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
    }
}

int GetSoundbarSoundMode(unsigned char* soundbarDeviceInfo, unsigned char* soundmodeData)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    VariantOwner preset = NoBytes();
    if (!preset) {
        KIV_LOG_ERROR("(%s) return", "param_out_val == NULL");
        return kApiFailed;
    }
    const ByteReply reply(call.Invoke("GetSoundbarSoundMode", g_variant_new("(i)", 0), std::move(preset)));
    if (const std::optional<int> result = reply.ResultWithoutMember(KIV_HERE)) {
        return *result;
    }
    const Bytes bytes = reply.Array();
    if (bytes.data() == nullptr) {
        KIV_LOG_ERROR("[%s] pByteArray is NULL", kApiTag);
        return 0;
    }
    if (bytes.size() < kSoundModeReplyLength) {
        return 0;
    }
    std::memcpy(soundbarDeviceInfo, bytes.data(), kIdentityLength);
    const int soundModeDataLen = Int32At(bytes, kIntegerAt);
    std::memcpy(soundmodeData, bytes.data() + kSoundModeAt, KIV_SOUND_MODE_LEN);
    const unsigned char* d = soundmodeData;
    KIV_LOG_INFO(
        "[%s] soundbarDeviceInfo[" KIV_MAC_FORMAT "], soundModeDataLen[%d], soundmodeData["
        "%02x%02x%02x%02x%02x-%02x%02x%02x%02x%02x-%02x%02x%02x%02x%02x-%02x%02x%02x%02x%02x]",
        kApiTag, KIV_MAC_BYTES(soundbarDeviceInfo), soundModeDataLen, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7],
        d[8], d[9], d[10], d[11], d[12], d[13], d[14], d[15], d[16], d[17], d[18], d[19]);
    if (IsCorrupted(soundmodeData, soundModeDataLen)) {
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
    if (const std::optional<int> result = reply.ResultWithoutMember(KIV_HERE)) {
        return *result;
    }
    const Bytes bytes = reply.Array();
    if (bytes.data() == nullptr) {
        return 0;
    }
    // The line is logged whatever the length of the reply is. Missing bytes are logged as zero.
    std::array<unsigned char, kIdentityLength> identity{};
    CopyUpTo(identity, bytes);
    KIV_LOG_DEBUG(
        "elenum[%zu], soundbarDeviceInfo[" KIV_MAC_FORMAT "], [%u.%u.%u.%u]", bytes.size(), KIV_MAC_BYTES(identity),
        identity[6], identity[7], identity[8], identity[9]);
    if (bytes.size() < kDeviceInfoLength) {
        return 0;
    }
    std::ranges::copy(identity, soundbarDeviceInfo);
    return Int32At(bytes, kIntegerAt);
}
