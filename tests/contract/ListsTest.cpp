#include "contract/BytesQueryTest.h"
#include "contract/RequestTest.h"

#include <climits>
#include <ostream>

using namespace kiv::test;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace lists_test {
namespace {

class ListsTest : public ApiTest {
protected:
    // Returns whether the records are these bytes, cut into records.
    template <typename Record>
    static bool Are(const std::vector<Record>& records, const std::vector<unsigned char>& bytes)
    {
        return bytes.size() >= records.size() * sizeof(Record) &&
               (records.empty() || std::memcmp(records.data(), bytes.data(), records.size() * sizeof(Record)) == 0);
    }
};

// --- Queries without an answer ---

int SpeakerLists()
{
    std::vector<STNetSpkListInfo> list;
    return GetNetSpkListInfo(list);
}

int SpeakerListsInArray()
{
    STNetSpkListInfo list[1];
    return getNetSpkListInfo(list);
}

int SpeakerNodes()
{
    std::vector<CNetSpkNodeInfo> list;
    return GetNetSpkNodeList(list);
}

const Lines kListsRefused = {MethodErrorLine("GetNetSpkListInfo"), "E GetNetSpkListInfo: param_out is NULL"};

const BytesQuery kQueries[] = {
    {.name = "GetActiveNetSpkInfo", .method = "GetActiveNetSpkInfo", .call = UnansweredActiveSpeakers},
    {.name = "GetNetSpkListInfo", .method = "GetNetSpkListInfo", .call = SpeakerLists, .refused = kListsRefused},
    // On some file systems, test names that differ only in case are the same.
    {.name = "PlainArray", .method = "GetNetSpkListInfo", .call = SpeakerListsInArray, .refused = kListsRefused},
    {.name = "GetNetSpkNodeList",
     .method = "GetNetSpkNodeList",
     .call = SpeakerNodes,
     .first = {"I GetNetSpkNodeList: GetNetSpkNodeList"},
     .refused =
         {MethodErrorLine("GetNetSpkNodeList"), "E GetNetSpkNodeList: param_out is NULL",
          "I GetNetSpkNodeList: [NAM_API] Speaker Size[-1]"},
     .noTuple = {0, {"I GetNetSpkNodeList: [NAM_API] Speaker Size[0]"}},
     .noBytes = {-1, {NoBytesLine("GetNetSpkNodeList")}}},
};

INSTANTIATE_TEST_SUITE_P(Lists, BytesQueryTest, ::testing::ValuesIn(kQueries), NameOf());

TEST_F(ListsTest, WhatFollowsTheBytesInTheReplyDoesNotMatter)
{
    const auto activeSpeakers = [] {
        char name[NETSPK_LIST_NAME_LEN];
        char type[NETSPK_SPEAKER_TYPE_LEN + 1];
        std::vector<spk_info_s> list;
        return GetActiveNetSpkInfo(name, type, list);
    };
    const struct {
        const char* method;
        std::size_t smallest; // the least number of bytes of a reply
        int result;
        int (*call)();
    } queries[] = {
        {"GetActiveNetSpkInfo", 151, 0, activeSpeakers},
        {"GetNetSpkListInfo", 1086, 1, SpeakerLists},
        {"GetNetSpkListInfo", 1086, 1, SpeakerListsInArray},
        {"GetNetSpkNodeList", 134, 1, SpeakerNodes},
    };
    for (const auto& [method, smallest, result, call] : queries) {
        control_.SetFault(method, "{'reply': <(@ay " + BytesText(std::vector<unsigned char>(smallest)) + ", 5)>}");
        EXPECT_EQ(call(), result) << method;
    }
    EXPECT_THAT(platform_log::OfTestThread(), ::testing::Each(::testing::Not(::testing::StartsWith("E "))));
}

// --- GetActiveNetSpkInfo ---

constexpr std::size_t kHeader = 155;

// Returns name, type, count and this number of bytes of speakers.
std::vector<unsigned char> ActivePayload(std::int32_t count, std::size_t speakerBytes)
{
    std::vector<unsigned char> payload = SomeBytes(kHeader + speakerBytes);
    std::memset(payload.data(), 0, kHeader);
    std::strcpy(reinterpret_cast<char*>(payload.data()), "Living room");
    std::strcpy(reinterpret_cast<char*>(payload.data()) + 128, "SURROUND");
    std::memcpy(payload.data() + 151, &count, sizeof count);
    return payload;
}

class ActiveSpeakersTest : public ListsTest {
protected:
    int Call() { return GetActiveNetSpkInfo(name_.Data(), type_.Data(), list_); }

    int CallFor(const std::vector<unsigned char>& payload)
    {
        control_.SetReply("GetActiveNetSpkInfo", payload);
        platform_log::Clear();
        return Call();
    }

    static std::string AnswerLine(const std::string& name, const std::string& type, int count)
    {
        return "I GetActiveNetSpkInfo: actviceSpksDisplayName[" + name + "], atciveSpksSpeakerType[" + type +
               "], speakercount[" + std::to_string(count) + "]";
    }

    bool NothingIsFilled() const { return name_.IsUntouched() && type_.IsUntouched() && list_.empty(); }

    Guarded<char, 128> name_;
    Guarded<char, 23> type_;
    std::vector<spk_info_s> list_;
};

TEST_F(ActiveSpeakersTest, NameTypeAndSpeakersAreTaken)
{
    const auto payload = ActivePayload(2, 366);

    EXPECT_EQ(CallFor(payload), 2);

    EXPECT_EQ(name_.Bytes(), std::vector<unsigned char>(payload.begin(), payload.begin() + 128));
    EXPECT_EQ(type_.Bytes(), std::vector<unsigned char>(payload.begin() + 128, payload.begin() + 151));
    ASSERT_THAT(list_, SizeIs(2));
    EXPECT_TRUE(Are(list_, {payload.begin() + kHeader, payload.end()}));
    ExpectLog(Logged("GetActiveNetSpkInfo", {}, {AnswerLine("Living room", "SURROUND", 2)}));
}

TEST_F(ActiveSpeakersTest, SpeakersAreAppendedToWhatTheListHolds)
{
    const auto earlier = SomeBytes(3 * sizeof(spk_info_s));
    list_.resize(3);
    std::memcpy(list_.data(), earlier.data(), earlier.size());
    const auto payload = ActivePayload(1, 183);

    EXPECT_EQ(CallFor(payload), 1);
    EXPECT_EQ(CallFor(ActivePayload(3, 366)), 3);
    EXPECT_EQ(CallFor({1, 2, 3}), 0);
    EXPECT_EQ(CallFor({}), 0);
    EXPECT_EQ(CallFor(payload), 1);

    const std::vector<unsigned char> speaker(payload.begin() + kHeader, payload.end());
    ASSERT_THAT(list_, SizeIs(5));
    EXPECT_EQ(std::memcmp(list_.data(), earlier.data(), earlier.size()), 0);
    EXPECT_EQ(std::memcmp(&list_[3], speaker.data(), 183), 0);
    EXPECT_EQ(std::memcmp(&list_[4], speaker.data(), 183), 0);
}

TEST_F(ActiveSpeakersTest, AReplyTooShortForNameAndTypeIsNothing)
{
    for (const std::size_t length : {1U, 127U, 128U, 149U, 150U}) {
        EXPECT_EQ(CallFor(SomeBytes(length)), 0) << length;
        EXPECT_TRUE(NothingIsFilled()) << length;
        ExpectLog(Logged(
            "GetActiveNetSpkInfo", {},
            {"E GetActiveNetSpkInfo: [NAM_API] elenum[" + std::to_string(length) +
             "] less than (NETSPK_LIST_NAME_LEN + NETSPK_SPEAKER_TYPE_LEN+1)[151]"}));
    }
}

TEST_F(ActiveSpeakersTest, AReplyThatEndsBeforeOrInTheCountHasNoSpeakers)
{
    for (const std::size_t length : {151U, 152U, 153U, 154U}) {
        auto payload = ActivePayload(-1, 0); // each byte of the count is 0xff
        payload.resize(length);
        payload[0] = static_cast<unsigned char>('a' + length % 26);
        EXPECT_EQ(CallFor(payload), 0) << length;
        EXPECT_TRUE(name_.StartsWithOnly({payload.begin(), payload.begin() + 128})) << length;
        EXPECT_TRUE(type_.StartsWithOnly({payload.begin() + 128, payload.begin() + 151})) << length;
        EXPECT_THAT(list_, IsEmpty());
        ExpectLog(Logged("GetActiveNetSpkInfo", {}, {AnswerLine(name_.Data(), "SURROUND", 0)}));
    }
}

// Returns the count for which 155 + 183 * count is this size in 32 bits. 183 times kInverse is 1.
constexpr std::int32_t CountForSize(std::uint32_t size)
{
    constexpr std::uint32_t kInverse = 2511265031U;
    static_assert(183U * kInverse == 1);
    return static_cast<std::int32_t>((size - 155U) * kInverse);
}

struct Announced {
    std::int32_t count;
    std::size_t speakerBytes;
    std::size_t appended;

    friend void PrintTo(const Announced& announced, std::ostream* out)
    {
        *out << announced.count << " in " << announced.speakerBytes;
    }
};

const Announced kAnnounced[] = {
    {0, 0, 0},
    {0, 183, 0},
    {1, 0, 0},
    {1, 182, 0},
    {1, 183, 1},
    {1, 184, 1},
    {1, 366, 1},
    {2, 365, 0},
    {2, 366, 2},
    {3, 366, 0},
    {3, 549, 3},
    {-1, 0, 0},
    {-1, 549, 0},
    {INT_MIN, 549, 0},
    {INT_MAX, 549, 0},
    {0x01000000, 183, 0}, // 1 in the other byte order
    // 183 times each of these counts is slightly more than a multiple of 2^32.
    {23469767, 549, 0},
    {727562766, 549, 0},
    {2135748765, 549, 0},
};

class AnnouncedTest : public ActiveSpeakersTest, public ::testing::WithParamInterface<Announced> {};

TEST_P(AnnouncedTest, TheCountIsReturnedAsAnnouncedAndSpeakersThatAreThereAreAppended)
{
    const auto payload = ActivePayload(GetParam().count, GetParam().speakerBytes);

    EXPECT_EQ(CallFor(payload), GetParam().count);

    EXPECT_STREQ(name_.Data(), "Living room");
    EXPECT_STREQ(type_.Data(), "SURROUND");
    EXPECT_THAT(list_, SizeIs(GetParam().appended));
    EXPECT_TRUE(Are(list_, {payload.begin() + kHeader, payload.end()}));
    EXPECT_EQ(platform_log::OfTestThread().back(), AnswerLine("Living room", "SURROUND", GetParam().count));
}

INSTANTIATE_TEST_SUITE_P(Counts, AnnouncedTest, ::testing::ValuesIn(kAnnounced));

TEST_F(ActiveSpeakersTest, ACountWhoseSizeWrapsAppendsNothing)
{
    int announced = 0;
    for (const std::uint32_t size : {0U, 1U, 150U, 151U, 154U, 155U, 156U, 200U, 337U, 338U, 339U, 521U, 704U}) {
        const std::int32_t count = CountForSize(size);
        EXPECT_EQ(CallFor(ActivePayload(count, 549)), count) << size;
        announced += count > 3 ? 1 : 0;
        EXPECT_THAT(list_, SizeIs(count >= 1 && count <= 3 ? static_cast<std::size_t>(count) : 0)) << size;
        list_.clear();
    }
    EXPECT_GE(announced, 4);
}

TEST_F(ActiveSpeakersTest, TextsThatFillTheirFieldsAreTakenAndLoggedWhole)
{
    auto payload = ActivePayload(1, 183);
    std::memset(payload.data(), 'n', 128);
    std::memset(payload.data() + 128, 't', 23);

    EXPECT_EQ(CallFor(payload), 1);

    EXPECT_EQ(name_.Bytes(), std::vector<unsigned char>(128, 'n'));
    EXPECT_EQ(type_.Bytes(), std::vector<unsigned char>(23, 't'));
    EXPECT_EQ(platform_log::OfTestThread().back(), AnswerLine(std::string(128, 'n'), std::string(23, 't'), 1));
}

TEST_F(ActiveSpeakersTest, BytesBehindTheEndOfATextAreTakenToo)
{
    auto payload = SomeBytes(151);
    payload[0] = payload[128] = '\0';

    EXPECT_EQ(CallFor(payload), 0);

    EXPECT_EQ(name_.Bytes(), std::vector<unsigned char>(payload.begin(), payload.begin() + 128));
    EXPECT_EQ(type_.Bytes(), std::vector<unsigned char>(payload.begin() + 128, payload.end()));
    EXPECT_EQ(platform_log::OfTestThread().back(), AnswerLine("", "", 0));
}

TEST_F(ActiveSpeakersTest, ATextIsNoFormat)
{
    auto payload = ActivePayload(0, 0);
    std::strcpy(reinterpret_cast<char*>(payload.data()), "%s%n%d");
    EXPECT_EQ(CallFor(payload), 0);
    EXPECT_EQ(platform_log::OfTestThread().back(), AnswerLine("%s%n%d", "SURROUND", 0));
}

TEST_F(ActiveSpeakersTest, FiftyThousandSpeakersTravel)
{
    const auto payload = ActivePayload(50'000, 50'000 * sizeof(spk_info_s));
    EXPECT_EQ(CallFor(payload), 50'000);
    ASSERT_THAT(list_, SizeIs(50'000));
    EXPECT_TRUE(Are(list_, {payload.begin() + kHeader, payload.end()}));
}

// --- Lists of records ---

struct ListInfos {
    using Record = STNetSpkListInfo;
    static constexpr const char* kName = "GetNetSpkListInfo";
    static constexpr const char* kRecordName = "STNetSpkListInfo";
    static constexpr int kNoBytes = 0;
    static Lines End(int /*result*/) { return {}; }
    static Lines First() { return {}; }
    static int Call(std::vector<Record>& list) { return GetNetSpkListInfo(list); }
};

struct Nodes {
    using Record = CNetSpkNodeInfo;
    static constexpr const char* kName = "GetNetSpkNodeList";
    static constexpr const char* kRecordName = "CNetSpkNodeInfo";
    static constexpr int kNoBytes = -1;
    static Lines First() { return {"I GetNetSpkNodeList: GetNetSpkNodeList"}; }
    static Lines End(int result)
    {
        return {"I GetNetSpkNodeList: [NAM_API] Speaker Size[" + std::to_string(result) + "]"};
    }
    static int Call(std::vector<Record>& list) { return GetNetSpkNodeList(list); }
};

struct FunctionNames {
    template <typename Function>
    static std::string GetName(int /*index*/)
    {
        return Function::kName;
    }
};

template <typename Function>
class RecordsOfTest : public ListsTest {
protected:
    using Record = typename Function::Record;

    RecordsOfTest()
    {
        list_.reserve(64);
        list_.resize(5);
    }

    int Call() { return Function::Call(list_); }

    int CallFor(const std::vector<unsigned char>& bytes)
    {
        this->control_.SetReply(name_, bytes);
        platform_log::Clear();
        return Call();
    }

    // Expects that the list is empty and has kept its capacity.
    void ExpectEmptied() const { EXPECT_TRUE(list_.empty() && list_.capacity() == 64U); }

    const std::string name_ = Function::kName;
    std::vector<Record> list_; // holds records of an earlier call
};

using RecordFunctions = ::testing::Types<ListInfos, Nodes>;
TYPED_TEST_SUITE(RecordsOfTest, RecordFunctions, FunctionNames);

TYPED_TEST(RecordsOfTest, WholeRecordsReplaceWhatTheListHeld)
{
    constexpr std::size_t kSize = sizeof(typename TypeParam::Record);
    for (const std::size_t length :
         {std::size_t{1}, kSize - 1, kSize, kSize + 1, 2 * kSize - 1, 2 * kSize, 3 * kSize + kSize / 2}) {
        const auto bytes = SomeBytes(length);
        const int records = static_cast<int>(length / kSize);
        this->list_.resize(5);

        SCOPED_TRACE(length);
        EXPECT_EQ(this->CallFor(bytes), records);

        EXPECT_THAT(this->list_, SizeIs(length / kSize));
        EXPECT_EQ(this->list_.capacity(), 64U);
        EXPECT_TRUE(this->Are(this->list_, bytes));
        const std::string line = "D " + this->name_ + ": [NAM_API] elenum[" + std::to_string(length) + "], sizeof(" +
                                 TypeParam::kRecordName + ")[" + std::to_string(kSize) + "]";
        ExpectLog(TypeParam::First() + this->Logged(this->name_, {}, Lines{line} + TypeParam::End(records)));
    }
}

TYPED_TEST(RecordsOfTest, TheListIsEmptiedWithoutAnAnswerToo)
{
    this->control_.SetFault(this->name_, kRefusal);
    EXPECT_EQ(this->Call(), -1);
    this->ExpectEmptied();

    this->list_.resize(5);
    EXPECT_EQ(this->CallFor({}), TypeParam::kNoBytes);
    this->ExpectEmptied();

    for (const WrongReply& reply : WrongReplies("(ay)")) {
        this->list_.resize(5);
        this->control_.SetFault(this->name_, reply.Fault());
        this->Call();
        this->ExpectEmptied();
    }
}

TYPED_TEST(RecordsOfTest, TheListStaysAsItIsWhereTheServerIsNotReached)
{
    this->KillServer();
    EXPECT_EQ(this->Call(), -1);
    EXPECT_THAT(this->list_, SizeIs(5));
    g_KivDisabled = true;
    EXPECT_EQ(this->Call(), -1);
    EXPECT_THAT(this->list_, SizeIs(5));
}

// Transfers as many bytes as 50,000 nodes have. If the bus took too long on a busy machine, the call would fail.
TYPED_TEST(RecordsOfTest, ManyRecordsTravel)
{
    constexpr std::size_t kCount = 50'000 * sizeof(CNetSpkNodeInfo) / sizeof(typename TypeParam::Record);
    const auto bytes = SomeBytes(kCount * sizeof(typename TypeParam::Record));
    EXPECT_EQ(this->CallFor(bytes), static_cast<int>(kCount));
    ASSERT_THAT(this->list_, SizeIs(kCount));
    EXPECT_TRUE(this->Are(this->list_, bytes));
}

// --- The plain array ---

class PlainArrayTest : public ListsTest {
protected:
    static constexpr std::size_t kSize = sizeof(STNetSpkListInfo);

    int Call() { return getNetSpkListInfo(reinterpret_cast<STNetSpkListInfo*>(array_.Data())); }

    Guarded<unsigned char, 4 * kSize> array_;
};

TEST_F(PlainArrayTest, WholeRecordsAreCopiedInOrder)
{
    for (const std::size_t length : {kSize, 2 * kSize - 1, 2 * kSize, 3 * kSize + 500}) {
        auto bytes = SomeBytes(length);
        control_.SetReply("GetNetSpkListInfo", bytes);
        Guarded<unsigned char, 4 * kSize> array;

        EXPECT_EQ(
            getNetSpkListInfo(reinterpret_cast<STNetSpkListInfo*>(array.Data())), static_cast<int>(length / kSize));

        bytes.resize(length / kSize * kSize);
        EXPECT_TRUE(array.StartsWithOnly(bytes)) << length;
    }
}

TEST_F(PlainArrayTest, TheLogIsThatOfTheOtherForm)
{
    control_.SetReply("GetNetSpkListInfo", SomeBytes(kSize));
    EXPECT_EQ(Call(), 1);
    ExpectLog(Logged(
        "GetNetSpkListInfo", {}, {"D GetNetSpkListInfo: [NAM_API] elenum[1086], sizeof(STNetSpkListInfo)[1086]"}));
}

TEST_F(PlainArrayTest, NoRecordIsNothingWritten)
{
    control_.SetReply("GetNetSpkListInfo", SomeBytes(kSize - 1));
    EXPECT_EQ(Call(), 0);
    control_.SetReply("GetNetSpkListInfo", {});
    EXPECT_EQ(Call(), 0);
    EXPECT_TRUE(array_.IsUntouched());
    EXPECT_EQ(getNetSpkListInfo(nullptr), 0);
}

TEST_F(PlainArrayTest, AFailureIsNothingWritten)
{
    control_.SetFault("GetNetSpkListInfo", kRefusal);
    EXPECT_EQ(Call(), -1);
    KillServer();
    EXPECT_EQ(Call(), -1);
    g_KivDisabled = true;
    EXPECT_EQ(Call(), -1);
    EXPECT_TRUE(array_.IsUntouched());
}

// --- GetNetSpkListInfoNumber ---

std::string NumberLine(int number)
{
    return "I GetNetSpkListInfoNumber: GetNetSpkListInfoNumber nRetV=[" + std::to_string(number) + "]";
}

const Request kNumber = {
    .name = "GetNetSpkListInfoNumber",
    .call = GetNetSpkListInfoNumber,
    .sent = "GetNetSpkListInfoNumber()",
    .replyType = "(i)",
    .answered = [](int answer) { return Lines{NumberLine(answer)}; },
    .preset = 0,
    .failed = {MethodErrorLine("GetNetSpkListInfoNumber"), NumberLine(-1)},
};

INSTANTIATE_TEST_SUITE_P(Lists, RequestTest, ::testing::Values(kNumber), NameOf());

} // namespace
} // namespace lists_test
