#include "ApiTest.h"

#include <climits>
#include <ostream>

using namespace kiv::test;
using ::testing::Contains;
using ::testing::ElementsAre;
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

// --- Shared by the queries for byte arrays ---

// The result and the last lines of a query that failed in one way.
struct Outcome {
    int result;
    Lines lines;
};

struct Query {
    const char* name;
    const char* method; // the server's method, and the function that logs
    Lines first;        // lines before all others
    Outcome refused;
    Outcome noTuple; // after the line about the missing tuple
    Outcome noBytes;
    std::size_t smallest; // the least number of bytes of a reply
    int smallestResult;
    int (*call)();
};

void PrintTo(const Query& query, std::ostream* out)
{
    *out << query.name;
}

int ActiveSpeakers()
{
    Guarded<char, NETSPK_LIST_NAME_LEN> name;
    Guarded<char, NETSPK_SPEAKER_TYPE_LEN + 1> type;
    std::vector<spk_info_s> list;
    return GetActiveNetSpkInfo(name.Data(), type.Data(), list);
}

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

const Query kQueries[] = {
    {"GetActiveNetSpkInfo",
     "GetActiveNetSpkInfo",
     {},
     {-1, {"E GetActiveNetSpkInfo: [NAM_API] MethodCall Error"}},
     {0, {}},
     {0, {"E GetActiveNetSpkInfo: [NAM_API] pByteArray is NULL"}},
     151,
     0,
     ActiveSpeakers},
    {"GetNetSpkListInfo",
     "GetNetSpkListInfo",
     {},
     {-1, {"E GetNetSpkListInfo: [NAM_API] MethodCall Error", "E GetNetSpkListInfo: param_out is NULL"}},
     {0, {}},
     {0, {"E GetNetSpkListInfo: [NAM_API] pByteArray is NULL"}},
     1086,
     1,
     SpeakerLists},
    {"getNetSpkListInfo",
     "GetNetSpkListInfo",
     {},
     {-1, {"E GetNetSpkListInfo: [NAM_API] MethodCall Error", "E GetNetSpkListInfo: param_out is NULL"}},
     {0, {}},
     {0, {"E GetNetSpkListInfo: [NAM_API] pByteArray is NULL"}},
     1086,
     1,
     SpeakerListsInArray},
    {"GetNetSpkNodeList",
     "GetNetSpkNodeList",
     {"I GetNetSpkNodeList: GetNetSpkNodeList"},
     {-1,
      {"E GetNetSpkNodeList: [NAM_API] MethodCall Error", "E GetNetSpkNodeList: param_out is NULL",
       "I GetNetSpkNodeList: [NAM_API] Speaker Size[-1]"}},
     {0, {"I GetNetSpkNodeList: [NAM_API] Speaker Size[0]"}},
     {-1, {"E GetNetSpkNodeList: [NAM_API] pByteArray is NULL"}},
     134,
     1,
     SpeakerNodes},
};

class ListQueryTest : public ListsTest, public ::testing::WithParamInterface<Query> {
protected:
    Lines LoggedByQuery(const Lines& after) const { return query_.first + Logged(method_, {}, after); }

    const Query& query_ = GetParam();
    const std::string method_ = GetParam().method;
};

TEST_P(ListQueryTest, SendsZero)
{
    control_.SetReply(method_, {});
    query_.call();
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery, method_ + "(0)"));
    EXPECT_EQ(SentMessages().back().signature, "i");
}

TEST_P(ListQueryTest, ARefusedCallIsMinusOne)
{
    control_.SetFault(method_, kRefusal);
    EXPECT_EQ(query_.call(), query_.refused.result);
    EXPECT_EQ(platform_log::OfTestThread(), LoggedByQuery(Lines{RefusedLine(method_)} + query_.refused.lines));
}

TEST_P(ListQueryTest, AReplyWithoutBytes)
{
    control_.SetReply(method_, {});
    EXPECT_EQ(query_.call(), query_.noBytes.result);
    EXPECT_EQ(platform_log::OfTestThread(), LoggedByQuery(query_.noBytes.lines));
}

TEST_P(ListQueryTest, AReplyOfAnotherTypeIsOneMoreLine)
{
    for (const WrongReply& reply : WrongReplies("(ay)")) {
        control_.SetFault(method_, reply.Fault());
        platform_log::Clear();
        const Outcome& outcome = std::string(reply.type) == "()" ? query_.noTuple : query_.noBytes;
        EXPECT_EQ(query_.call(), outcome.result) << reply.value;
        EXPECT_EQ(platform_log::OfTestThread(), LoggedByQuery(NoBytesLines(method_, method_, reply) + outcome.lines));
    }
}

TEST_P(ListQueryTest, WhatFollowsTheBytesInTheReplyDoesNotMatter)
{
    std::string zeros = "byte 0";
    for (std::size_t i = 1; i < query_.smallest; ++i) {
        zeros += ", 0";
    }
    control_.SetFault(method_, "{'reply': <([" + zeros + "], 5)>}");
    EXPECT_EQ(query_.call(), query_.smallestResult);
    EXPECT_THAT(platform_log::OfTestThread(), ::testing::Each(::testing::Not(::testing::StartsWith("E "))));
}

TEST_P(ListQueryTest, AnAbsentServerIsMinusOne)
{
    KillServer();
    platform_log::Clear();
    EXPECT_EQ(query_.call(), -1);
    EXPECT_EQ(platform_log::OfTestThread(), query_.first + UnreachableLines(method_));
}

TEST_P(ListQueryTest, ADeviceWithoutTheFeatureIsMinusOne)
{
    g_KivDisabled = true;
    EXPECT_EQ(query_.call(), -1);
    EXPECT_EQ(platform_log::OfTestThread(), query_.first + DisabledLines(method_));
    EXPECT_THAT(Sent(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Functions, ListQueryTest, ::testing::ValuesIn(kQueries), [](const auto& query) {
    // On some file systems, test names that differ only in case are the same.
    return std::string(query.param.call == SpeakerListsInArray ? "PlainArray" : query.param.name);
});

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
    EXPECT_EQ(
        platform_log::OfTestThread(), Logged("GetActiveNetSpkInfo", {}, {AnswerLine("Living room", "SURROUND", 2)}));
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
        EXPECT_EQ(
            platform_log::OfTestThread(), Logged(
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
        EXPECT_EQ(
            platform_log::OfTestThread(), Logged("GetActiveNetSpkInfo", {}, {AnswerLine(name_.Data(), "SURROUND", 0)}));
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
};

void PrintTo(const Announced& announced, std::ostream* out)
{
    *out << announced.count << " in " << announced.speakerBytes;
}

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

TEST_F(ActiveSpeakersTest, WithoutAnAnswerEverythingStaysAsItIs)
{
    control_.SetFault("GetActiveNetSpkInfo", kRefusal);
    EXPECT_EQ(Call(), -1);
    EXPECT_TRUE(NothingIsFilled());
    EXPECT_EQ(CallFor({}), 0);
    EXPECT_TRUE(NothingIsFilled());
    for (const WrongReply& reply : WrongReplies("(ay)")) {
        control_.SetFault("GetActiveNetSpkInfo", reply.Fault());
        EXPECT_EQ(Call(), 0);
        EXPECT_TRUE(NothingIsFilled()) << reply.value;
    }
    KillServer();
    EXPECT_EQ(Call(), -1);
    EXPECT_TRUE(NothingIsFilled());
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
    void ExpectEmptied() const
    {
        EXPECT_THAT(list_, IsEmpty());
        EXPECT_EQ(list_.capacity(), 64U);
    }

    const std::string name_ = Function::kName;
    std::vector<Record> list_; // holds records of an earlier call
};

using RecordFunctions = ::testing::Types<ListInfos, Nodes>;
TYPED_TEST_SUITE(RecordsOfTest, RecordFunctions, FunctionNames);

TYPED_TEST(RecordsOfTest, WholeRecordsReplaceWhatTheListHeld)
{
    constexpr std::size_t kSize = sizeof(typename TypeParam::Record);
    for (const std::size_t length : {kSize, kSize + 1, 2 * kSize - 1, 2 * kSize, 3 * kSize + kSize / 2}) {
        const auto bytes = SomeBytes(length);
        const int records = static_cast<int>(length / kSize);
        this->list_.resize(5);

        EXPECT_EQ(this->CallFor(bytes), records) << length;

        EXPECT_THAT(this->list_, SizeIs(length / kSize));
        EXPECT_TRUE(this->Are(this->list_, bytes)) << length;
        EXPECT_EQ(
            platform_log::OfTestThread(),
            TypeParam::First() + this->Logged(
                                     this->name_, {},
                                     Lines{
                                         "D " + this->name_ + ": [NAM_API] elenum[" + std::to_string(length) +
                                         "], sizeof(" + TypeParam::kRecordName + ")[" + std::to_string(kSize) + "]"} +
                                         TypeParam::End(records)));
    }
}

TYPED_TEST(RecordsOfTest, LessThanARecordIsAnEmptyList)
{
    constexpr std::size_t kSize = sizeof(typename TypeParam::Record);
    for (const std::size_t length : {std::size_t{1}, kSize - 1}) {
        this->list_.resize(5);
        EXPECT_EQ(this->CallFor(SomeBytes(length)), 0) << length;
        this->ExpectEmptied();
        EXPECT_EQ(
            platform_log::OfTestThread(),
            TypeParam::First() + this->Logged(
                                     this->name_, {},
                                     Lines{
                                         "D " + this->name_ + ": [NAM_API] elenum[" + std::to_string(length) +
                                         "], sizeof(" + TypeParam::kRecordName + ")[" + std::to_string(kSize) + "]"} +
                                         TypeParam::End(0)));
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
    EXPECT_EQ(
        platform_log::OfTestThread(),
        Logged(
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

TEST_F(ListsTest, TheNumberIsTheServers)
{
    for (const int answer : {0, 3, -1, -5, INT_MAX, INT_MIN}) {
        control_.SetFault("GetNetSpkListInfoNumber", "{'reply': <(" + std::to_string(answer) + ",)>}");
        ForgetTraffic();
        EXPECT_EQ(GetNetSpkListInfoNumber(), answer);
        EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery, "GetNetSpkListInfoNumber()"));
        EXPECT_EQ(SentMessages().back().signature, "");
        EXPECT_EQ(
            platform_log::OfTestThread(),
            Logged(
                "GetNetSpkListInfoNumber", {},
                {"I GetNetSpkListInfoNumber: GetNetSpkListInfoNumber nRetV=[" + std::to_string(answer) + "]"}));
    }
}

TEST_F(ListsTest, ARefusedNumberIsMinusOne)
{
    control_.SetFault("GetNetSpkListInfoNumber", kRefusal);
    EXPECT_EQ(GetNetSpkListInfoNumber(), -1);
    EXPECT_EQ(
        platform_log::OfTestThread(),
        Logged(
            "GetNetSpkListInfoNumber", {},
            {RefusedLine("GetNetSpkListInfoNumber"), "E GetNetSpkListInfoNumber: [NAM_API] MethodCall Error",
             "I GetNetSpkListInfoNumber: GetNetSpkListInfoNumber nRetV=[-1]"}));
}

// The result is 0 without a reply of the right type.
TEST_F(ListsTest, ANumberOfAnotherTypeIsNone)
{
    for (const WrongReply& reply : WrongReplies("(i)")) {
        control_.SetFault("GetNetSpkListInfoNumber", reply.Fault());
        platform_log::Clear();
        EXPECT_EQ(GetNetSpkListInfoNumber(), 0) << reply.value;
        EXPECT_EQ(
            platform_log::OfTestThread(),
            Logged(
                "GetNetSpkListInfoNumber", {},
                {WrongTypeLine("GetNetSpkListInfoNumber", "GetNetSpkListInfoNumber", "(i)", reply.type),
                 "I GetNetSpkListInfoNumber: GetNetSpkListInfoNumber nRetV=[0]"}));
    }
}

TEST_F(ListsTest, ANumberThatCannotBeAskedForIsMinusOne)
{
    KillServer();
    platform_log::Clear();
    EXPECT_EQ(GetNetSpkListInfoNumber(), -1);
    EXPECT_EQ(platform_log::OfTestThread(), UnreachableLines("GetNetSpkListInfoNumber"));
    g_KivDisabled = true;
    EXPECT_EQ(GetNetSpkListInfoNumber(), -1);
}

} // namespace
} // namespace lists_test
