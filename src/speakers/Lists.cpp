#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>

using namespace kiv::link;

namespace {

// A copy of the text in a field of fixed size, which may lack the NUL at its end.
template <std::size_t Size>
class FieldText {
public:
    explicit FieldText(const char (&field)[Size]) { std::memcpy(text_, field, Size); }
    const char* c_str() const { return text_; }

private:
    char text_[Size + 1] = {};
};

#pragma pack(push, 1)

// The head of the reply to GetActiveNetSpkInfo. As many speakers as it announces should follow.
struct ActiveHead {
    char displayName[NETSPK_LIST_NAME_LEN];
    char speakerType[NETSPK_SPEAKER_TYPE_LEN + 1];
    std::int32_t count;
};

#pragma pack(pop)

constexpr std::size_t kTextsLength = offsetof(ActiveHead, count);

// Returns the number of speakers that the server announces. Appends the speakers only if all of them are there.
int AppendSpeakers(std::vector<spk_info_s>& list, Bytes payload)
{
    if (payload.size() < sizeof(ActiveHead)) {
        return 0;
    }
    const std::int32_t announced = Front<ActiveHead>(payload).count;
    const Bytes speakers = From(payload, sizeof(ActiveHead));
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
    const std::optional<ByteReply> reply = call.AskForBytes("GetActiveNetSpkInfo", "param_out == NULL");
    if (!reply) {
        return kApiFailed;
    }
    if (!*reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return kApiFailed;
    }
    if (const std::optional<int> result = reply->ResultWithoutMember()) {
        return *result;
    }
    if (!reply->HasBytes()) {
        return 0; // an empty answer, and one of another type, tell of no speaker
    }
    const Bytes payload = reply->Array();
    if (payload.size() < kTextsLength) {
        KIV_LOG_ERROR(
            "[%s] elenum[%zu] less than (NETSPK_LIST_NAME_LEN + NETSPK_SPEAKER_TYPE_LEN+1)[%d]", kApiTag,
            payload.size(), static_cast<int>(kTextsLength));
        return 0;
    }
    const auto head = Front<ActiveHead>(payload);
    std::memcpy(pDisplayName, head.displayName, sizeof head.displayName);
    std::memcpy(pSpeakerType, head.speakerType, sizeof head.speakerType);
    const int count = AppendSpeakers(list, payload);
    KIV_LOG_INFO(
        "actviceSpksDisplayName[%s], atciveSpksSpeakerType[%s], speakercount[%d]", FieldText(head.displayName).c_str(),
        FieldText(head.speakerType).c_str(), count);
    return count;
}

int GetNetSpkListInfo(std::vector<STNetSpkListInfo>& list)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    list.clear();
    const std::optional<ByteReply> reply = call.AskForBytes("GetNetSpkListInfo", "param_out_val == NULL");
    if (!reply) {
        return kApiFailed;
    }
    if (const std::optional<int> result = reply->ResultWithoutMember()) {
        return *result;
    }
    if (!reply->HasBytes()) {
        return 0; // an empty answer, and one of another type, tell of no list
    }
    const Bytes bytes = reply->Array();
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
    const Reply reply = call.Request("GetNetSpkListInfoNumber");
    // An answer of another type tells of no list, so the host makes room for none.
    const int result = reply ? reply.Int(0) : kApiFailed;
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
    const std::optional<ByteReply> reply = call.AskForBytes("GetNetSpkNodeList", "param_out_value == NULL");
    if (!reply) {
        return kApiFailed;
    }
    std::optional<int> size = reply->ResultWithoutMember();
    if (!size) {
        if (!reply->HasBytes()) {
            return kApiFailed; // unlike GetNetSpkListInfo(), does not tell no node from an answer of another type
        }
        const Bytes bytes = reply->Array();
        KIV_LOG_DEBUG("[%s] elenum[%zu], sizeof(CNetSpkNodeInfo)[%zu]", kApiTag, bytes.size(), sizeof(CNetSpkNodeInfo));
        size = AppendRecords(list, bytes);
    }
    KIV_LOG_INFO("[%s] Speaker Size[%d]", kApiTag, *size);
    return *size;
}
