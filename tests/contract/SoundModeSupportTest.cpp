#include "ApiTest.h"

#include <climits>
#include <cstdio>
#include <ostream>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace sound_mode_support_test {
namespace {

class SoundModeSupportTest : public ApiTest {};

// --- SetSoundbarSupportSoundMode ---

class SetSupportTest : public SoundModeSupportTest {
protected:
    static constexpr int kIp = 0x0700a8c0; // 192.168.0.7

    static std::string AnnouncedLine(int supported)
    {
        return "D SetSoundbarSupportSoundMode: [NAM_API] Mac[" + kMacLogged + "], nSupportedOrNot[" +
               std::to_string(supported) + "]";
    }
};

TEST_F(SetSupportTest, SendsIdentityAndWhetherItIsSupported)
{
    const struct {
        int supported;
        unsigned char bytes[4];
    } values[] = {
        {1, {0x01, 0x00, 0x00, 0x00}},       {0, {0x00, 0x00, 0x00, 0x00}},       {-2, {0xfe, 0xff, 0xff, 0xff}},
        {INT_MAX, {0xff, 0xff, 0xff, 0x7f}}, {INT_MIN, {0x00, 0x00, 0x00, 0x80}},
    };
    for (const auto& [supported, bytes] : values) {
        ForgetTraffic();
        SetSoundbarSupportSoundMode(kMac, kIp, supported);
        EXPECT_THAT(
            Sent(),
            ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery, ::testing::StartsWith("SetSoundbarSupportSoundMode(")));
        EXPECT_EQ(SentMessages().back().signature, "ay");
        EXPECT_THAT(
            Bytes(control_.Calls().back()),
            ElementsAre(0x02, 0x4b, 0x49, 0x56, 0x7f, 0xa4, 192, 168, 0, 7, bytes[0], bytes[1], bytes[2], bytes[3]));
        EXPECT_EQ(platform_log::OfTestThread(), Logged("SetSoundbarSupportSoundMode", {AnnouncedLine(supported)}, {}));
    }
}

TEST_F(SetSupportTest, ANullMacIsNoticedOnceTheServerIsReached)
{
    SetSoundbarSupportSoundMode(nullptr, kIp, 1);
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
    EXPECT_THAT(
        platform_log::OfTestThread(), ElementsAre(
                                          "I SetSoundbarSupportSoundMode: >>> API Start ", kEnter,
                                          "E SetSoundbarSupportSoundMode: (pMac == NULL) return"));

    KillServer();
    platform_log::Clear();
    SetSoundbarSupportSoundMode(nullptr, kIp, 1);
    EXPECT_EQ(platform_log::OfTestThread(), UnreachableLines("SetSoundbarSupportSoundMode"));

    g_KivDisabled = true;
    platform_log::Clear();
    SetSoundbarSupportSoundMode(nullptr, kIp, 1);
    EXPECT_EQ(platform_log::OfTestThread(), DisabledLines("SetSoundbarSupportSoundMode"));
}

TEST_F(SetSupportTest, ARefusalIsOneMoreLine)
{
    control_.SetFault("SetSoundbarSupportSoundMode", kRefusal);
    SetSoundbarSupportSoundMode(kMac, kIp, 1);
    EXPECT_EQ(
        platform_log::OfTestThread(),
        Logged(
            "SetSoundbarSupportSoundMode", {AnnouncedLine(1)},
            {RefusedLine("SetSoundbarSupportSoundMode"), "E SetSoundbarSupportSoundMode: [NAM_API] MethodCall Error"}));
}

TEST_F(SetSupportTest, AServerThatGoesBeforeTheCallIsAFailedCall)
{
    platform_log::OnLine([&](const LogLine& line) {
        if (line.Short() == AnnouncedLine(1)) {
            KillServer();
        }
    });
    SetSoundbarSupportSoundMode(kMac, kIp, 1);
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery));
    EXPECT_EQ(platform_log::OfTestThread().back(), "E SetSoundbarSupportSoundMode: [NAM_API] MethodCall Error");
}

TEST_F(SetSupportTest, TheAnswerIsNotLookedAt)
{
    for (const WrongReply& reply : WrongReplies("")) {
        control_.SetFault("SetSoundbarSupportSoundMode", reply.Fault());
        platform_log::Clear();
        SetSoundbarSupportSoundMode(kMac, kIp, 1);
        EXPECT_EQ(platform_log::OfTestThread(), Logged("SetSoundbarSupportSoundMode", {AnnouncedLine(1)}, {}))
            << reply.value;
    }
}

// --- Shared by both queries ---

struct Query {
    const char* name;
    int failed;
    int (*call)();
};

void PrintTo(const Query& query, std::ostream* out)
{
    *out << query.name;
}

int ProtocolVersion()
{
    Guarded<unsigned char, 20> version;
    const int result = GetSoundbarProtocolVersion(kMac, version.Data(), 20);
    EXPECT_TRUE(result != -1 || version.IsUntouched());
    return result;
}

int IsSupported()
{
    return IsSoundbarSupportSoundMode(kMac) ? 1 : 0;
}

const Query kQueries[] = {
    {"GetSoundbarProtocolVersion", -1, ProtocolVersion},
    {"IsSoundbarSupportSoundMode", 0, IsSupported},
};

class SupportQueryTest : public SoundModeSupportTest, public ::testing::WithParamInterface<Query> {
protected:
    const Query& query_ = GetParam();
    const std::string name_ = GetParam().name;
    const Lines entered_{"D " + name_ + ": [NAM_API] Enter"};
};

TEST_P(SupportQueryTest, SendsTheMac)
{
    query_.call();
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery, ::testing::StartsWith(name_ + "(")));
    EXPECT_EQ(SentMessages().back().signature, "ay");
    EXPECT_THAT(Bytes(control_.Calls().back()), ElementsAreArray(kMac));
}

TEST_P(SupportQueryTest, ARefusedCallIsAFailure)
{
    control_.SetFault(name_, kRefusal);
    EXPECT_EQ(query_.call(), query_.failed);
    EXPECT_EQ(
        platform_log::OfTestThread(),
        entered_ + Logged(name_, {}, {RefusedLine(name_), "E " + name_ + ": [NAM_API] MethodCall Error"}));
}

TEST_P(SupportQueryTest, AnAbsentServerIsAFailure)
{
    KillServer();
    platform_log::Clear();
    EXPECT_EQ(query_.call(), query_.failed);
    EXPECT_EQ(platform_log::OfTestThread(), entered_ + UnreachableLines(name_));
}

TEST_P(SupportQueryTest, ADeviceWithoutTheFeatureIsAFailure)
{
    g_KivDisabled = true;
    EXPECT_EQ(query_.call(), query_.failed);
    EXPECT_EQ(platform_log::OfTestThread(), entered_ + DisabledLines(name_));
    EXPECT_THAT(Sent(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Functions, SupportQueryTest, ::testing::ValuesIn(kQueries), [](const auto& query) {
    return std::string(query.param.name);
});

// --- GetSoundbarProtocolVersion ---

class ProtocolVersionTest : public SoundModeSupportTest {
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
        return Lines{"D GetSoundbarProtocolVersion: [NAM_API] Enter"} + Logged("GetSoundbarProtocolVersion", {}, after);
    }
    static std::string LengthLine(std::size_t length)
    {
        return "D GetSoundbarProtocolVersion: soundmode version length[" + std::to_string(length) + "]";
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
        EXPECT_EQ(platform_log::OfTestThread(), LoggedByGet({LengthLine(24)}));
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
        EXPECT_EQ(platform_log::OfTestThread(), LoggedByGet({LengthLine(length)}));
    }
}

TEST_F(ProtocolVersionTest, AReplyWithoutBytesIsMinusOne)
{
    control_.SetReply("GetSoundbarProtocolVersion", {});
    EXPECT_EQ(GetSoundbarProtocolVersion(kMac, version_.Data(), 64), -1);
    EXPECT_TRUE(version_.IsUntouched());
    EXPECT_EQ(
        platform_log::OfTestThread(), LoggedByGet({LengthLine(0), "E GetSoundbarProtocolVersion: pByteArray is NULL"}));
}

TEST_F(ProtocolVersionTest, AReplyOfAnotherTypeIsMinusOneAndOneMoreLine)
{
    for (const WrongReply& reply : WrongReplies("(ay)")) {
        control_.SetFault("GetSoundbarProtocolVersion", reply.Fault());
        platform_log::Clear();
        EXPECT_EQ(GetSoundbarProtocolVersion(kMac, version_.Data(), 64), -1) << reply.value;
        EXPECT_TRUE(version_.IsUntouched()) << reply.value;
        const Lines noBytes = std::string(reply.type) == "()"
                                  ? Lines{}
                                  : Lines{LengthLine(0), "E GetSoundbarProtocolVersion: pByteArray is NULL"};
        EXPECT_EQ(
            platform_log::OfTestThread(),
            LoggedByGet(NoBytesLines("GetSoundbarProtocolVersion", "GetSoundbarProtocolVersion", reply) + noBytes));
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
        EXPECT_THAT(
            platform_log::OfTestThread(), ElementsAre(
                                              "D GetSoundbarProtocolVersion: [NAM_API] Enter",
                                              "I GetSoundbarProtocolVersion: >>> API Start ", kEnter, line));
    }
    EXPECT_TRUE(version_.IsUntouched());
}

TEST_F(ProtocolVersionTest, ArgumentsAreNotLookedAtBeforeTheServerIsReached)
{
    KillServer();
    platform_log::Clear();
    EXPECT_EQ(GetSoundbarProtocolVersion(nullptr, nullptr, 0), -1);
    EXPECT_EQ(
        platform_log::OfTestThread(),
        Lines{"D GetSoundbarProtocolVersion: [NAM_API] Enter"} + UnreachableLines("GetSoundbarProtocolVersion"));
    g_KivDisabled = true;
    platform_log::Clear();
    EXPECT_EQ(GetSoundbarProtocolVersion(nullptr, nullptr, 0), -1);
    EXPECT_EQ(
        platform_log::OfTestThread().back(), "E GetSoundbarProtocolVersion: [NAM_API] GetWhetherKivDisabled failed");
}

// --- IsSoundbarSupportSoundMode ---

class IsSupportedTest : public SoundModeSupportTest {
protected:
    static Lines LoggedByQuery(const Lines& after)
    {
        return Lines{"D IsSoundbarSupportSoundMode: [NAM_API] Enter"} + Logged("IsSoundbarSupportSoundMode", {}, after);
    }
};

TEST_F(IsSupportedTest, TheAnswerIsTheServersAndNotLogged)
{
    for (const bool answer : {true, false, true}) {
        control_.SetFault("IsSoundbarSupportSoundMode", answer ? "{'reply': <(true,)>}" : "{'reply': <(false,)>}");
        platform_log::Clear();
        EXPECT_EQ(IsSoundbarSupportSoundMode(kMac), answer);
        EXPECT_EQ(platform_log::OfTestThread(), LoggedByQuery({}));
    }
}

TEST_F(IsSupportedTest, AReplyOfAnotherTypeIsFalseAndOneMoreLine)
{
    for (const WrongReply& reply : WrongReplies("(b)")) {
        control_.SetFault("IsSoundbarSupportSoundMode", reply.Fault());
        platform_log::Clear();
        EXPECT_FALSE(IsSoundbarSupportSoundMode(kMac)) << reply.value;
        EXPECT_EQ(
            platform_log::OfTestThread(),
            LoggedByQuery(
                {WrongTypeLine("IsSoundbarSupportSoundMode", "IsSoundbarSupportSoundMode", "(b)", reply.type)}));
    }
}

TEST_F(IsSupportedTest, ANullMacIsFalseWithoutAWord)
{
    control_.SetFault("IsSoundbarSupportSoundMode", "{'reply': <(true,)>}");
    EXPECT_FALSE(IsSoundbarSupportSoundMode(nullptr));
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAre(
            "D IsSoundbarSupportSoundMode: [NAM_API] Enter", "I IsSoundbarSupportSoundMode: >>> API Start ", kEnter));
}

} // namespace
} // namespace sound_mode_support_test
