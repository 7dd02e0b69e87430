#include "contract/BytesQueryTest.h"
#include "contract/RequestTest.h"

#include <climits>
#include <numeric>

using namespace kiv::test;
using ::testing::ElementsAre;

namespace sound_mode_test {
namespace {

constexpr int kIp = 0x0700a8c0; // 192.168.0.7

// --- SetSoundbarSoundMode ---

const unsigned char kData[] = {0x00, 0xff, 0x80};

std::string AnnouncedLine(int dataLength)
{
    return "D SetSoundbarSoundMode: [NAM_API] Mac[" + kMacLogged + "], nDataLen[" + std::to_string(dataLength) + "]";
}

const Request kSet = {
    .name = "SetSoundbarSoundMode",
    .call = [] { return SetSoundbarSoundMode(kMac, kIp, kData, 3), 0; },
    .sent = "SetSoundbarSoundMode(" +
            BytesText({0x02, 0x4b, 0x49, 0x56, 0x7f, 0xa4, 192, 168, 0, 7, 0x00, 0xff, 0x80}) + ")",
    .signature = "ay",
    .failed = {MethodErrorLine("SetSoundbarSoundMode")},
    .before = {AnnouncedLine(3)},
};

INSTANTIATE_TEST_SUITE_P(SoundMode, RequestTest, ::testing::Values(kSet), NameOf());

class SetSoundModeTest : public ApiTest {
protected:
    static Lines LoggedBySet(int dataLength, const Lines& after)
    {
        return Logged("SetSoundbarSoundMode", {AnnouncedLine(dataLength)}, after);
    }

    void ExpectNotAllocated(std::initializer_list<int> dataLengths)
    {
        for (const int length : dataLengths) {
            ForgetTraffic();
            SetSoundbarSoundMode(kMac, kIp, kData, length);
            EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
            ExpectLog(
                PrologueLines("SetSoundbarSoundMode") + AnnouncedLine(length) +
                ("E SetSoundbarSoundMode: calloc(NETSPK_MAC_LEN+NETSPK_IP_LEN+nDataLen[" + std::to_string(length) +
                 "]) fail"));
        }
    }
};

TEST_F(SetSoundModeTest, SendsTheIdentityAloneWhereThereIsNoData)
{
    SetSoundbarSoundMode(kMac, -2, kData, 0);
    EXPECT_THAT(
        Bytes(control_.Calls().back()), ElementsAre(0x02, 0x4b, 0x49, 0x56, 0x7f, 0xa4, 0xfe, 0xff, 0xff, 0xff));
    ExpectLog(LoggedBySet(0, {}));
}

TEST_F(SetSoundModeTest, SendsMuchData)
{
    const auto data = SomeBytes(100'000);
    SetSoundbarSoundMode(kMac, kIp, data.data(), 100'000);
    const auto sent = Bytes(control_.Calls().back());
    ASSERT_EQ(sent.size(), 100'010U);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), sent.begin() + 10));
}

TEST_F(SetSoundModeTest, ANullArgumentIsNoticedOnceTheServerIsReached)
{
    const unsigned char* const none = nullptr;
    for (const auto& [mac, data] : {std::pair(none, kData + 0), std::pair(kMac + 0, none), std::pair(none, none)}) {
        ForgetTraffic();
        SetSoundbarSoundMode(mac, kIp, data, 3);
        EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
        ExpectLog(
            PrologueLines("SetSoundbarSoundMode") + "E SetSoundbarSoundMode: (pMac == NULL || pData == NULL) return");
    }
}

TEST_F(SetSoundModeTest, ArgumentsAreNotLookedAtBeforeTheServerIsReached)
{
    ExpectUnreached("SetSoundbarSoundMode", {}, [] { SetSoundbarSoundMode(nullptr, 0, nullptr, -1); });
}

TEST_F(SetSoundModeTest, ANegativeLengthCannotBeAllocated)
{
    ExpectNotAllocated({-1, -9, -10, -11, INT_MIN + 9, INT_MIN});
}

TEST_F(SetSoundModeTest, ALengthThatDoesNotFitInAnIntCannotBeAllocatedAndIsNotRead)
{
    ExpectNotAllocated({INT_MAX - 9, INT_MAX - 1, INT_MAX});
    SetSoundbarSoundMode(kMac, kIp, kData, 3);
    EXPECT_EQ(Bytes(control_.Calls().back()).size(), 13U);
}

TEST_F(SetSoundModeTest, DataThatTheBusCannotCarryIsAFailedCall)
{
    const std::vector<unsigned char> data(kLongestArray - 9);
    const int length = static_cast<int>(data.size());

    SetSoundbarSoundMode(kMac, kIp, data.data(), length);

    ExpectLog(LoggedBySet(length, {TooLongLine("SetSoundbarSoundMode"), MethodErrorLine("SetSoundbarSoundMode")}));
    ExpectNotCalled();
}

TEST_F(SetSoundModeTest, AServerThatGoesBeforeTheCallIsAFailedCall)
{
    AtLine(AnnouncedLine(3), [&] { KillServer(); });
    SetSoundbarSoundMode(kMac, kIp, kData, 3);
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery));
    EXPECT_EQ(platform_log::OfTestThread().back(), MethodErrorLine("SetSoundbarSoundMode"));
}

// --- Queries without an answer ---

const BytesQuery kQueries[] = {
    {.name = "GetSoundbarSoundMode",
     .method = "GetSoundbarSoundMode",
     .call = UnansweredSoundMode,
     .refused = {MethodErrorLine("GetSoundbarSoundMode"), "E GetSoundbarSoundMode: param_out is NULL"}},
    {.name = "GetSoundbarDeviceInfo",
     .method = "GetSoundbarDeviceInfo",
     .call = UnansweredDeviceInfo,
     .refused = {MethodErrorLine("GetSoundbarDeviceInfo"), "E GetSoundbarDeviceInfo: param_out is NULL"},
     .noBytes = {0, {}}},
};

INSTANTIATE_TEST_SUITE_P(SoundMode, BytesQueryTest, ::testing::ValuesIn(kQueries), NameOf());

// --- Their answers ---

// Returns identity, integer, and the bytes 0xe0 0xe1 ... up to the length.
std::vector<unsigned char> Payload(std::int32_t value, std::size_t length)
{
    std::vector<unsigned char> payload{0x02, 0x4b, 0x49, 0x56, 0x7f, 0xa4, 192, 168, 0, 7};
    payload.resize(std::max(length, std::size_t{14}));
    std::memcpy(payload.data() + 10, &value, sizeof value);
    std::iota(payload.begin() + 14, payload.end(), static_cast<unsigned char>(0xe0));
    payload.resize(length);
    return payload;
}

const std::vector<unsigned char> kIdentity = Payload(0, 10);

class GetSoundModeTest : public ApiTest {
protected:
    int CallFor(const std::vector<unsigned char>& payload)
    {
        control_.SetReply("GetSoundbarSoundMode", payload);
        platform_log::Clear();
        return GetSoundbarSoundMode(identity_.Data(), data_.Data());
    }

    static std::string AnswerLine(int length, const std::string& firstByte)
    {
        return "I GetSoundbarSoundMode: [NAM_API] soundbarDeviceInfo[" + kMacLogged + "], soundModeDataLen[" +
               std::to_string(length) + "], soundmodeData[" + firstByte + "e1e2e3e4-e5e6e7e8e9-eaebecedee-eff0f1f2f3]";
    }

    Guarded<unsigned char, 10> identity_;
    Guarded<unsigned char, 20> data_;
};

TEST_F(GetSoundModeTest, IdentityLengthAndDataAreTaken)
{
    for (const std::size_t size : {34U, 35U, 1000U}) {
        const auto payload = Payload(20, size);

        EXPECT_EQ(CallFor(payload), 20) << size;

        EXPECT_EQ(identity_.Bytes(), kIdentity);
        EXPECT_EQ(data_.Bytes(), std::vector<unsigned char>(payload.begin() + 14, payload.begin() + 34));
        ExpectLog(Logged("GetSoundbarSoundMode", {}, {AnswerLine(20, "e0")}));
    }
}

TEST_F(GetSoundModeTest, AShortReplyIsZeroWithoutAWord)
{
    for (const std::size_t size : {1U, 9U, 10U, 13U, 14U, 32U, 33U}) {
        EXPECT_EQ(CallFor(Payload(5, size)), 0) << size;
        EXPECT_TRUE(identity_.IsUntouched()) << size;
        EXPECT_TRUE(data_.IsUntouched()) << size;
        ExpectLog(Logged("GetSoundbarSoundMode", {}, {}));
    }
}

TEST_F(GetSoundModeTest, DataThatBeginsWithOneHasOneOfTwoLengths)
{
    for (const int length : {5, 13}) {
        auto payload = Payload(length, 34);
        payload[14] = 1;
        EXPECT_EQ(CallFor(payload), length);
        ExpectLog(Logged("GetSoundbarSoundMode", {}, {AnswerLine(length, "01")}));
    }
}

TEST_F(GetSoundModeTest, DataThatBeginsWithOneAndHasAnotherLengthIsIgnoredThoughTaken)
{
    for (const int length : {7, 0, 1, 4, 6, 12, 14, 20, -1, -5, 0x0500, INT_MAX, INT_MIN}) {
        auto payload = Payload(length, 34);
        payload[14] = 1;
        Guarded<unsigned char, 10> identity;
        Guarded<unsigned char, 20> data;
        control_.SetReply("GetSoundbarSoundMode", payload);
        platform_log::Clear();

        EXPECT_EQ(GetSoundbarSoundMode(identity.Data(), data.Data()), 0) << length;

        EXPECT_EQ(identity.Bytes(), kIdentity);
        EXPECT_EQ(data.Bytes(), std::vector<unsigned char>(payload.begin() + 14, payload.end()));
        ExpectLog(Logged(
            "GetSoundbarSoundMode", {},
            {AnswerLine(length, "01"), "E GetSoundbarSoundMode: soundmodeData is corrupted, So ignore it"}));
    }
}

TEST_F(GetSoundModeTest, DataThatBeginsOtherwiseMayHaveAnyLength)
{
    for (const int first : {0x00, 0x02, 0x81, 0xff}) {
        for (const int length : {7, 0, 5, 13, -1, -5, INT_MAX, INT_MIN}) {
            auto payload = Payload(length, 34);
            payload[14] = static_cast<unsigned char>(first);
            EXPECT_EQ(CallFor(payload), length);
            EXPECT_THAT(Own("GetSoundbarSoundMode"), ::testing::SizeIs(1));
        }
    }
}

TEST_F(GetSoundModeTest, WhatFollowsTheBytesInTheReplyDoesNotMatter)
{
    control_.SetFault(
        "GetSoundbarSoundMode", "{'reply': <(b'0123456789\\005\\001\\001\\00101234567890123456789', 'x')>}");
    EXPECT_EQ(GetSoundbarSoundMode(identity_.Data(), data_.Data()), 0x01010105);
    EXPECT_EQ(std::memcmp(identity_.Data(), "0123456789", 10), 0);
    EXPECT_EQ(std::memcmp(data_.Data(), "01234567890123456789", 20), 0);
}

class DeviceInfoTest : public ApiTest {
protected:
    int CallFor(const std::vector<unsigned char>& payload)
    {
        control_.SetReply("GetSoundbarDeviceInfo", payload);
        platform_log::Clear();
        return GetSoundbarDeviceInfo(identity_.Data());
    }

    static Lines LoggedFor(std::size_t length, const std::string& mac, const std::string& ip)
    {
        return Logged(
            "GetSoundbarDeviceInfo", {},
            {"D GetSoundbarDeviceInfo: elenum[" + std::to_string(length) + "], soundbarDeviceInfo[" + mac + "], [" +
             ip + "]"});
    }

    Guarded<unsigned char, 10> identity_;
};

TEST_F(DeviceInfoTest, IdentityAndValueAreTaken)
{
    for (const std::size_t size : {14U, 15U, 34U, 1000U}) {
        for (const int value : {0, 7, -1, -5, INT_MAX, INT_MIN}) {
            EXPECT_EQ(CallFor(Payload(value, size)), value);
            EXPECT_EQ(identity_.Bytes(), kIdentity);
            ExpectLog(LoggedFor(size, kMacLogged, "192.168.0.7"));
        }
    }
}

TEST_F(DeviceInfoTest, DataThatBeginsWithOneIsNothingSpecial)
{
    auto payload = Payload(7, 34);
    payload[14] = 1;
    EXPECT_EQ(CallFor(payload), 7);
    ExpectLog(LoggedFor(34, kMacLogged, "192.168.0.7"));
}

TEST_F(DeviceInfoTest, AShortReplyIsLoggedAndZero)
{
    const struct {
        std::size_t length;
        const char* mac;
        const char* ip;
    } replies[] = {
        {13, "02:4b:49:56:7f:a4", "192.168.0.7"}, {10, "02:4b:49:56:7f:a4", "192.168.0.7"},
        {9, "02:4b:49:56:7f:a4", "192.168.0.0"},  {7, "02:4b:49:56:7f:a4", "192.0.0.0"},
        {6, "02:4b:49:56:7f:a4", "0.0.0.0"},      {5, "02:4b:49:56:7f:00", "0.0.0.0"},
        {1, "02:00:00:00:00:00", "0.0.0.0"},
    };
    for (const auto& reply : replies) {
        EXPECT_EQ(CallFor(Payload(-1, reply.length)), 0) << reply.length;
        EXPECT_TRUE(identity_.IsUntouched()) << reply.length;
        ExpectLog(LoggedFor(reply.length, reply.mac, reply.ip));
    }
}

} // namespace
} // namespace sound_mode_test
