#include "contract/BytesQueryTest.h"
#include "contract/RequestTest.h"

#include <climits>
#include <cstdio>

using namespace kiv::test;
using ::testing::ElementsAre;

namespace sound_mode_support_test {
namespace {

constexpr int kIp = 0x0700a8c0; // 192.168.0.7

// --- SetSoundbarSupportSoundMode and IsSoundbarSupportSoundMode ---

std::string AnnouncedLine(int supported)
{
    return "D SetSoundbarSupportSoundMode: [NAM_API] Mac[" + kMacLogged + "], nSupportedOrNot[" +
           std::to_string(supported) + "]";
}

const std::vector<unsigned char> kMacBytes(std::begin(kMac), std::end(kMac));

Request Set(const std::string& name, int supported, const std::vector<unsigned char>& bytes)
{
    std::vector<unsigned char> sent = {0x02, 0x4b, 0x49, 0x56, 0x7f, 0xa4, 192, 168, 0, 7};
    sent.insert(sent.end(), bytes.begin(), bytes.end());
    return {
        .name = name,
        .call = [=] { return SetSoundbarSupportSoundMode(kMac, kIp, supported), 0; },
        .sent = "SetSoundbarSupportSoundMode(" + BytesText(sent) + ")",
        .signature = "ay",
        .failed = {MethodErrorLine("SetSoundbarSupportSoundMode")},
        .before = {AnnouncedLine(supported)},
        .frame = "SetSoundbarSupportSoundMode",
    };
}

const Request kRequests[] = {
    Set("Supported", 1, {0x01, 0x00, 0x00, 0x00}),
    Set("NotSupported", 0, {0x00, 0x00, 0x00, 0x00}),
    Set("Negative", -2, {0xfe, 0xff, 0xff, 0xff}),
    Set("Maximum", INT_MAX, {0xff, 0xff, 0xff, 0x7f}),
    Set("Minimum", INT_MIN, {0x00, 0x00, 0x00, 0x80}),
    {
        .name = "IsSoundbarSupportSoundMode",
        .call = [] { return static_cast<int>(IsSoundbarSupportSoundMode(kMac)); },
        .sent = "IsSoundbarSupportSoundMode(" + BytesText(kMacBytes) + ")",
        .signature = "ay",
        .replyType = "(b)",
        .preset = 0,
        .failed = {MethodErrorLine("IsSoundbarSupportSoundMode")},
        .failure = 0,
        .first = {"D IsSoundbarSupportSoundMode: [NAM_API] Enter"},
    },
};

INSTANTIATE_TEST_SUITE_P(SoundModeSupport, RequestTest, ::testing::ValuesIn(kRequests), NameOf());

class SoundModeSupportTest : public ApiTest {};

TEST_F(SoundModeSupportTest, ANullMacIsNoticedOnceTheServerIsReached)
{
    const std::string set = "SetSoundbarSupportSoundMode";
    const auto call = [] { SetSoundbarSupportSoundMode(nullptr, kIp, 1); };
    call();
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
    ExpectLog(PrologueLines(set) + "E SetSoundbarSupportSoundMode: (pMac == NULL) return");
    ExpectUnreached(set, {}, call);
}

TEST_F(SoundModeSupportTest, ANullMacIsFalseWithoutAWord)
{
    const std::string query = "IsSoundbarSupportSoundMode";
    const Lines enter = {"D IsSoundbarSupportSoundMode: [NAM_API] Enter"};
    const auto call = [] { EXPECT_FALSE(IsSoundbarSupportSoundMode(nullptr)); };
    control_.SetFault(query, "{'reply': <(true,)>}");
    call();
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
    ExpectLog(enter + PrologueLines(query));
    ExpectUnreached(query, enter, call);
}

TEST_F(SoundModeSupportTest, AServerThatGoesBeforeTheCallIsAFailedCall)
{
    AtLine(AnnouncedLine(1), [&] { KillServer(); });
    SetSoundbarSupportSoundMode(kMac, kIp, 1);
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery));
    EXPECT_EQ(platform_log::OfTestThread().back(), MethodErrorLine("SetSoundbarSupportSoundMode"));
}

// --- GetSoundbarProtocolVersion ---

const Lines kVersionEnter = {"D GetSoundbarProtocolVersion: [NAM_API] Enter"};

std::string LengthLine(std::size_t length)
{
    return "D GetSoundbarProtocolVersion: soundmode version length[" + std::to_string(length) + "]";
}

const BytesQuery kVersionQuery = {
    .name = "GetSoundbarProtocolVersion",
    .method = "GetSoundbarProtocolVersion",
    .call = UnansweredProtocolVersion,
    .sent = BytesText(kMacBytes),
    .signature = "ay",
    .first = kVersionEnter,
    .noTuple = {-1, {}},
    .noBytes = {-1, {LengthLine(0), "E GetSoundbarProtocolVersion: pByteArray is NULL"}},
};

INSTANTIATE_TEST_SUITE_P(SoundModeSupport, BytesQueryTest, ::testing::Values(kVersionQuery), NameOf());

class ProtocolVersionTest : public ApiTest {
protected:
    static std::vector<unsigned char> Payload(std::int32_t version, std::size_t length = 24)
    {
        std::vector<unsigned char> payload = SomeBytes(std::max(length, sizeof version));
        std::memcpy(payload.data(), &version, sizeof version);
        payload.resize(length);
        return payload;
    }

    static Lines LoggedByGet(const Lines& after)
    {
        return kVersionEnter + Logged("GetSoundbarProtocolVersion", {}, after);
    }
    Guarded<unsigned char, 64> version_;
};

TEST_F(ProtocolVersionTest, AsManyBytesAreCopiedAsThereAreAndAsThereIsRoomFor)
{
    const auto payload = Payload(3);
    control_.SetReply("GetSoundbarProtocolVersion", payload);
    for (const int room : {1, 7, 8, 19, 20, 21, 64, INT_MAX}) {
        Guarded<unsigned char, 64> version;
        platform_log::Clear();

        EXPECT_EQ(GetSoundbarProtocolVersion(kMac, version.Data(), room), 3) << room;

        EXPECT_TRUE(version.StartsWithOnly({payload.begin() + 4, payload.begin() + 4 + std::min(room, 20)})) << room;
        ExpectLog(LoggedByGet({LengthLine(24)}));
    }
}

TEST_F(ProtocolVersionTest, AnyVersionIsReturnedAsItIs)
{
    for (const int version : {0, 1, -1, -5, INT_MAX, INT_MIN}) {
        control_.SetReply("GetSoundbarProtocolVersion", Payload(version));
        EXPECT_EQ(GetSoundbarProtocolVersion(kMac, version_.Data(), 64), version);
        EXPECT_FALSE(version_.IsUntouched());
    }
}

TEST_F(ProtocolVersionTest, AReplyOfAnotherLengthIsMinusOne)
{
    for (const std::size_t length : {1U, 3U, 4U, 20U, 23U, 25U, 48U, 1000U}) {
        control_.SetReply("GetSoundbarProtocolVersion", Payload(3, length));
        platform_log::Clear();
        EXPECT_EQ(GetSoundbarProtocolVersion(kMac, version_.Data(), 64), -1) << length;
        EXPECT_TRUE(version_.IsUntouched()) << length;
        ExpectLog(LoggedByGet({LengthLine(length)}));
    }
}

TEST_F(ProtocolVersionTest, WhatFollowsTheBytesInTheReplyDoesNotMatter)
{
    control_.SetFault("GetSoundbarProtocolVersion", "{'reply': <(b'\\005\\001\\001\\0010123456789012345678', 'x')>}");
    EXPECT_EQ(GetSoundbarProtocolVersion(kMac, version_.Data(), 19), 0x01010105);
    EXPECT_EQ(std::memcmp(version_.Data(), "0123456789012345678", 19), 0);
}

TEST_F(ProtocolVersionTest, BadArgumentsAreNoticedOnceTheServerIsReached)
{
    unsigned char* const room = version_.Data();
    const struct {
        const unsigned char* mac;
        unsigned char* version;
        int length;
    } calls[] = {
        {nullptr, room, 20}, {kMac, nullptr, 20},   {kMac, room, 0},
        {kMac, room, -1},    {kMac, room, INT_MIN}, {nullptr, nullptr, -7},
    };
    for (const auto& [mac, version, length] : calls) {
        ForgetTraffic();
        EXPECT_EQ(GetSoundbarProtocolVersion(mac, version, length), -1);
        EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
        char line[200];
        std::snprintf(
            line, sizeof line,
            "E GetSoundbarProtocolVersion: Invalid arguments, soundbarMAC[%p], pSoundModeVersion[%p], "
            "nSoundModeVersionLen[%d]",
            static_cast<const void*>(mac), static_cast<void*>(version), length);
        ExpectLog(
            {"D GetSoundbarProtocolVersion: [NAM_API] Enter", StartLine("GetSoundbarProtocolVersion"), kEnter, line});
    }
    EXPECT_TRUE(version_.IsUntouched());
}

TEST_F(ProtocolVersionTest, ArgumentsAreNotLookedAtBeforeTheServerIsReached)
{
    ExpectUnreached("GetSoundbarProtocolVersion", kVersionEnter, [] {
        EXPECT_EQ(GetSoundbarProtocolVersion(nullptr, nullptr, 0), -1);
    });
}

} // namespace
} // namespace sound_mode_support_test
