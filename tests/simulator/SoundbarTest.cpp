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

class SoundbarTest : public ::testing::Test {
protected:
    Soundbars soundbars_;
};

TEST_F(SoundbarTest, KeepsItsSoundMode)
{
    EXPECT_EQ(soundbars_.SoundMode(), SoundModeAnswer({1, 0, 0, 0, 0}));
    EXPECT_EQ(soundbars_.SetSoundMode(Identified({9, 8, 7})), 0);
    EXPECT_EQ(soundbars_.SoundMode(), SoundModeAnswer({9, 8, 7}));
    EXPECT_EQ(soundbars_.ToJson()[0]["soundMode"], "09 08 07");
    EXPECT_EQ(soundbars_.SetSoundMode(Identified(Bytes(20, 5))), 0);
    EXPECT_EQ(soundbars_.SoundMode(), SoundModeAnswer(Bytes(20, 5)));
    EXPECT_EQ(soundbars_.SetSoundMode(Identified({})), 0);
    EXPECT_EQ(soundbars_.SoundMode(), SoundModeAnswer({}));
}

TEST_F(SoundbarTest, RefusesWhatIsNoSoundMode)
{
    EXPECT_EQ(soundbars_.SetSoundMode(Identified(Bytes(21))), -1);
    EXPECT_EQ(soundbars_.SetSoundMode(kMac), -1);
    EXPECT_EQ(soundbars_.SetSoundMode({}), -1);
    EXPECT_EQ(soundbars_.SetSoundMode(Joined({kOtherMac, kIp, {1}})), -1);
    EXPECT_EQ(soundbars_.SoundMode(), SoundModeAnswer({1, 0, 0, 0, 0}));
}

TEST_F(SoundbarTest, KeepsWhetherItSupportsSoundModes)
{
    EXPECT_TRUE(soundbars_.SupportsSoundMode(kMac));
    EXPECT_EQ(soundbars_.DeviceInfo(), Identified({1, 0, 0, 0}));
    EXPECT_EQ(soundbars_.SetSupportsSoundMode(Identified({0, 0, 0, 0})), 0);
    EXPECT_FALSE(soundbars_.SupportsSoundMode(kMac));
    EXPECT_EQ(soundbars_.SetSupportsSoundMode(Identified({0xfe, 0xff, 0xff, 0xff})), 0);
    EXPECT_TRUE(soundbars_.SupportsSoundMode(kMac));
    EXPECT_EQ(soundbars_.DeviceInfo(), Identified({0xfe, 0xff, 0xff, 0xff}));
    EXPECT_EQ(soundbars_.ToJson()[0]["supportsSoundMode"], -2);
}

TEST_F(SoundbarTest, RefusesWhatDoesNotTellSupport)
{
    EXPECT_EQ(soundbars_.SetSupportsSoundMode(Identified({0, 0, 0})), -1);
    EXPECT_EQ(soundbars_.SetSupportsSoundMode(Identified({0, 0, 0, 0, 0})), -1);
    EXPECT_EQ(soundbars_.SetSupportsSoundMode(Joined({kOtherMac, kIp, {0, 0, 0, 0}})), -1);
    EXPECT_TRUE(soundbars_.SupportsSoundMode(kMac));
}

TEST_F(SoundbarTest, TellsItsProtocolVersion)
{
    const Bytes version = soundbars_.ProtocolVersion(kMac);
    ASSERT_THAT(version, SizeIs(24));
    EXPECT_THAT(Bytes(version.begin(), version.begin() + 4), ElementsAre(2, 0, 0, 0));
    EXPECT_EQ(std::string(version.begin() + 4, version.begin() + 22), "KIV sound mode 2.0");
    EXPECT_THAT(Bytes(version.begin() + 22, version.end()), ElementsAre(0, 0));
}

TEST_F(SoundbarTest, AnswersToItsOwnAddressOnly)
{
    for (const Bytes& mac : {Bytes(), Bytes(5), kOtherMac, Joined({kMac, {0}})}) {
        EXPECT_FALSE(soundbars_.SupportsSoundMode(mac));
        EXPECT_THAT(soundbars_.ProtocolVersion(mac), IsEmpty());
    }
}

TEST_F(SoundbarTest, OfSeveralTheFirstAnswersWhatNamesNone)
{
    const Mac other = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01};
    soundbars_.Replace(
        {{"First", {0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0}, {192, 168, 0, 20}},
         {.name = "Second", .mac = other, .ip = {10, 0, 0, 1}, .supportsSoundMode = 0, .protocolVersion = 3}});
    EXPECT_EQ(soundbars_.SetSoundMode(Joined({kOtherMac, kIp, {9}})), 0);
    EXPECT_EQ(soundbars_.SoundMode(), SoundModeAnswer({1, 0, 0, 0, 0}));
    EXPECT_EQ(soundbars_.ToJson()[1]["soundMode"], "09");
    EXPECT_EQ(soundbars_.DeviceInfo(), Identified({1, 0, 0, 0}));
    EXPECT_TRUE(soundbars_.SupportsSoundMode(kMac));
    EXPECT_FALSE(soundbars_.SupportsSoundMode(kOtherMac));
    EXPECT_EQ(soundbars_.ProtocolVersion(kOtherMac).at(0), 3);
}

TEST_F(SoundbarTest, WithoutOneThereIsNothingToTell)
{
    soundbars_.Replace({});
    EXPECT_THAT(soundbars_.SoundMode(), IsEmpty());
    EXPECT_THAT(soundbars_.DeviceInfo(), IsEmpty());
    EXPECT_EQ(soundbars_.SetSoundMode(Identified({1})), -1);
    EXPECT_FALSE(soundbars_.SupportsSoundMode(kMac));
}

} // namespace
} // namespace kiv::simulator
