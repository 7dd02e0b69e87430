#include "simulator/Soundbar.h"

#include "simulator/SimulatorTest.h"

namespace kiv::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const Bytes kMac = {0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0};
const Bytes kIp = {192, 168, 0, 20};
const Bytes kOtherMac = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01};

Bytes Identified(const Bytes& rest)
{
    return Joined({kMac, kIp, rest});
}

Bytes SoundModeAnswer(const Bytes& data)
{
    Bytes padded = data;
    padded.resize(20);
    return Joined({kMac, kIp, {static_cast<std::uint8_t>(data.size()), 0, 0, 0}, padded});
}

TEST(SoundbarTest, KeepsItsSoundMode)
{
    Soundbars soundbars;
    EXPECT_EQ(soundbars.SoundMode(), SoundModeAnswer({1, 0, 0, 0, 0}));
    EXPECT_EQ(soundbars.SetSoundMode(Identified({9, 8, 7})), 0);
    EXPECT_EQ(soundbars.SoundMode(), SoundModeAnswer({9, 8, 7}));
    EXPECT_EQ(soundbars.ToJson()[0]["soundMode"], "09 08 07");
    EXPECT_EQ(soundbars.SetSoundMode(Identified(Bytes(20, 5))), 0);
    EXPECT_EQ(soundbars.SoundMode(), SoundModeAnswer(Bytes(20, 5)));
    EXPECT_EQ(soundbars.SetSoundMode(Identified({})), 0);
    EXPECT_EQ(soundbars.SoundMode(), SoundModeAnswer({}));
}

TEST(SoundbarTest, RefusesWhatIsNoSoundMode)
{
    Soundbars soundbars;
    EXPECT_EQ(soundbars.SetSoundMode(Identified(Bytes(21))), -1);
    EXPECT_EQ(soundbars.SetSoundMode(kMac), -1);
    EXPECT_EQ(soundbars.SetSoundMode({}), -1);
    EXPECT_EQ(soundbars.SetSoundMode(Joined({kOtherMac, kIp, {1}})), -1);
    EXPECT_EQ(soundbars.SoundMode(), SoundModeAnswer({1, 0, 0, 0, 0}));
}

TEST(SoundbarTest, KeepsWhetherItSupportsSoundModes)
{
    Soundbars soundbars;
    EXPECT_TRUE(soundbars.SupportsSoundMode(kMac));
    EXPECT_EQ(soundbars.DeviceInfo(), Identified({1, 0, 0, 0}));
    EXPECT_EQ(soundbars.SetSupportsSoundMode(Identified({0, 0, 0, 0})), 0);
    EXPECT_FALSE(soundbars.SupportsSoundMode(kMac));
    EXPECT_EQ(soundbars.SetSupportsSoundMode(Identified({0xfe, 0xff, 0xff, 0xff})), 0);
    EXPECT_TRUE(soundbars.SupportsSoundMode(kMac));
    EXPECT_EQ(soundbars.DeviceInfo(), Identified({0xfe, 0xff, 0xff, 0xff}));
    EXPECT_EQ(soundbars.ToJson()[0]["supportsSoundMode"], -2);
}

TEST(SoundbarTest, RefusesWhatDoesNotTellSupport)
{
    Soundbars soundbars;
    EXPECT_EQ(soundbars.SetSupportsSoundMode(Identified({0, 0, 0})), -1);
    EXPECT_EQ(soundbars.SetSupportsSoundMode(Identified({0, 0, 0, 0, 0})), -1);
    EXPECT_EQ(soundbars.SetSupportsSoundMode(Joined({kOtherMac, kIp, {0, 0, 0, 0}})), -1);
    EXPECT_TRUE(soundbars.SupportsSoundMode(kMac));
}

TEST(SoundbarTest, TellsItsProtocolVersion)
{
    const Bytes version = Soundbars().ProtocolVersion(kMac);
    ASSERT_THAT(version, SizeIs(24));
    EXPECT_THAT(Bytes(version.begin(), version.begin() + 4), ElementsAre(2, 0, 0, 0));
    EXPECT_EQ(std::string(version.begin() + 4, version.begin() + 22), "KIV sound mode 2.0");
    EXPECT_THAT(Bytes(version.begin() + 22, version.end()), ElementsAre(0, 0));
}

TEST(SoundbarTest, AnswersToItsOwnAddressOnly)
{
    const Soundbars soundbars;
    for (const Bytes& mac : {Bytes(), Bytes(5), kOtherMac, Joined({kMac, {0}})}) {
        EXPECT_FALSE(soundbars.SupportsSoundMode(mac));
        EXPECT_THAT(soundbars.ProtocolVersion(mac), IsEmpty());
    }
}

TEST(SoundbarTest, OfSeveralTheFirstAnswersWhatNamesNone)
{
    const Mac other = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01};
    Soundbars soundbars;
    soundbars.Replace(
        {{"First", {0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0}, {192, 168, 0, 20}},
         {.name = "Second", .mac = other, .ip = {10, 0, 0, 1}, .supportsSoundMode = 0, .protocolVersion = 3}});
    EXPECT_EQ(soundbars.SetSoundMode(Joined({kOtherMac, kIp, {9}})), 0);
    EXPECT_EQ(soundbars.SoundMode(), SoundModeAnswer({1, 0, 0, 0, 0}));
    EXPECT_EQ(soundbars.ToJson()[1]["soundMode"], "09");
    EXPECT_EQ(soundbars.DeviceInfo(), Identified({1, 0, 0, 0}));
    EXPECT_TRUE(soundbars.SupportsSoundMode(kMac));
    EXPECT_FALSE(soundbars.SupportsSoundMode(kOtherMac));
    EXPECT_EQ(soundbars.ProtocolVersion(kOtherMac).at(0), 3);
}

TEST(SoundbarTest, WithoutOneThereIsNothingToTell)
{
    Soundbars soundbars;
    soundbars.Replace({});
    EXPECT_THAT(soundbars.SoundMode(), IsEmpty());
    EXPECT_THAT(soundbars.DeviceInfo(), IsEmpty());
    EXPECT_EQ(soundbars.SetSoundMode(Identified({1})), -1);
    EXPECT_FALSE(soundbars.SupportsSoundMode(kMac));
}

} // namespace
} // namespace kiv::simulator
