#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

using namespace kiv::link;

namespace {

// A copy of the text in a field of fixed size, which may lack the NUL at its end.
template <std::size_t Size>
class FieldText {
public:
    explicit FieldText(const char* field) { std::memcpy(text_, field, Size); }
    const char* c_str() const { return text_; }

private:
    char text_[Size + 1] = {};
};

constexpr std::size_t kTypeLength = NETSPK_SPEAKER_TYPE_LEN + 1;

// Offsets in the reply to GetActiveNetSpkInfo: name, type, number of speakers, speakers.
constexpr std::size_t kTypeAt = NETSPK_LIST_NAME_LEN;
constexpr std::size_t kCountAt = kTypeAt + kTypeLength;
constexpr std::size_t kSpeakersAt = kCountAt + sizeof(std::int32_t);

// Returns the number of speakers that the server announces. Appends the speakers only if all of them are there.
int AppendSpeakers(std::vector<spk_info_s>& list, Bytes payload)
{
    if (payload.size() < kSpeakersAt) {
        return 0;
    }
    const std::int32_t announced = Int32At(payload, kCountAt);
    const Bytes speakers = From(payload, kSpeakersAt);
    if (announced >= 1 && speakers.size() / sizeof(spk_info_s) >= static_cast<std::size_t>(announced)) {
        AppendRecords(list, speakers.first(static_cast<std::size_t>(announced) * sizeof(spk_info_s)));
    }
    return announced;
}

} // namespace

int GetActiveNetSpkInfo(char* pDisplayName, char* pSpeakerType, std::vector<spk_info_s>& list)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    VariantOwner preset = NoBytes();
    if (!preset) {
        KIV_LOG_ERROR("(%s) return", "param_out == NULL");
        return kApiFailed;
    }
    const ByteReply reply(call.Invoke("GetActiveNetSpkInfo", g_variant_new("(i)", 0), std::move(preset)));
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return kApiFailed;
    }
    if (const std::optional<int> result = reply.ResultWithoutMember(KIV_HERE)) {
        return *result;
    }
    const Bytes payload = reply.Array();
    if (payload.data() == nullptr) {
        KIV_LOG_ERROR("[%s] pByteArray is NULL", kApiTag);
        return 0;
    }
    if (payload.size() < kCountAt) {
        KIV_LOG_ERROR(
            "[%s] elenum[%zu] less than (NETSPK_LIST_NAME_LEN + NETSPK_SPEAKER_TYPE_LEN+1)[%d]", kApiTag,
            payload.size(), static_cast<int>(kCountAt));
        return 0;
    }
    std::memcpy(pDisplayName, payload.data(), NETSPK_LIST_NAME_LEN);
    std::memcpy(pSpeakerType, payload.data() + kTypeAt, kTypeLength);
    const int count = AppendSpeakers(list, payload);
    KIV_LOG_INFO(
        "actviceSpksDisplayName[%s], atciveSpksSpeakerType[%s], speakercount[%d]",
        FieldText<NETSPK_LIST_NAME_LEN>(pDisplayName).c_str(), FieldText<kTypeLength>(pSpeakerType).c_str(), count);
    return count;
}

int GetNetSpkListInfo(std::vector<STNetSpkListInfo>& list)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    list.clear();
    VariantOwner preset = NoBytes();
    if (!preset) {
        KIV_LOG_ERROR("(%s) return", "param_out_val == NULL");
        return kApiFailed;
    }
    const ByteReply reply(call.Invoke("GetNetSpkListInfo", g_variant_new("(i)", 0), std::move(preset)));
    if (const std::optional<int> result = reply.ResultWithoutMember(KIV_HERE)) {
        return *result;
    }
    const Bytes bytes = reply.Array();
    if (bytes.data() == nullptr) {
        KIV_LOG_ERROR("[%s] pByteArray is NULL", kApiTag);
        return 0;
    }
    KIV_LOG_DEBUG("[%s] elenum[%zu], sizeof(STNetSpkListInfo)[%zu]", kApiTag, bytes.size(), sizeof(STNetSpkListInfo));
    return AppendRecords(list, bytes);
}

int getNetSpkListInfo(STNetSpkListInfo* pList)
{
    std::vector<STNetSpkListInfo> list;
    const int result = GetNetSpkListInfo(list);
    std::copy(list.begin(), list.end(), pList);
    return result;
}

int GetNetSpkListInfoNumber()
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    int result = kApiFailed;
    const Reply reply = call.Invoke("GetNetSpkListInfoNumber");
    if (reply) {
        result = reply.Int(0);
    } else {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
    }
    KIV_LOG_INFO("GetNetSpkListInfoNumber nRetV=[%d]", result);
    return result;
}

int GetNetSpkNodeList(std::vector<CNetSpkNodeInfo>& list)
{
    KIV_LOG_INFO("GetNetSpkNodeList");
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    list.clear();
    VariantOwner preset = NoBytes();
    if (!preset) {
        KIV_LOG_ERROR("(%s) return", "param_out_value == NULL");
        return kApiFailed;
    }
    const ByteReply reply(call.Invoke("GetNetSpkNodeList", g_variant_new("(i)", 0), std::move(preset)));
    std::optional<int> size = reply.ResultWithoutMember(KIV_HERE);
    if (!size) {
        const Bytes bytes = reply.Array();
        if (bytes.data() == nullptr) {
            KIV_LOG_ERROR("[%s] pByteArray is NULL", kApiTag);
            return kApiFailed;
        }
        KIV_LOG_DEBUG("[%s] elenum[%zu], sizeof(CNetSpkNodeInfo)[%zu]", kApiTag, bytes.size(), sizeof(CNetSpkNodeInfo));
        size = AppendRecords(list, bytes);
    }
    KIV_LOG_INFO("[%s] Speaker Size[%d]", kApiTag, *size);
    return *size;
}
