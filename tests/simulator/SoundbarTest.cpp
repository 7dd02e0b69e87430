#include "simulator/Soundbar.h"

#include "SimulatorTest.h"

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
    Soundbar soundbar;
    EXPECT_EQ(soundbar.SoundMode(), SoundModeAnswer({1, 0, 0, 0, 0}));
    EXPECT_EQ(soundbar.SetSoundMode(Identified({9, 8, 7})), 0);
    EXPECT_EQ(soundbar.SoundMode(), SoundModeAnswer({9, 8, 7}));
    EXPECT_EQ(soundbar.ToJson()["soundMode"], "09 08 07");
    EXPECT_EQ(soundbar.SetSoundMode(Identified(Bytes(20, 5))), 0);
    EXPECT_EQ(soundbar.SoundMode(), SoundModeAnswer(Bytes(20, 5)));
    EXPECT_EQ(soundbar.SetSoundMode(Identified({})), 0);
    EXPECT_EQ(soundbar.SoundMode(), SoundModeAnswer({}));
}

TEST(SoundbarTest, RefusesWhatIsNoSoundMode)
{
    Soundbar soundbar;
    EXPECT_EQ(soundbar.SetSoundMode(Identified(Bytes(21))), -1);
    EXPECT_EQ(soundbar.SetSoundMode(kMac), -1);
    EXPECT_EQ(soundbar.SetSoundMode({}), -1);
    EXPECT_EQ(soundbar.SetSoundMode(Joined({kOtherMac, kIp, {1}})), -1);
    EXPECT_EQ(soundbar.SoundMode(), SoundModeAnswer({1, 0, 0, 0, 0}));
}

TEST(SoundbarTest, KeepsWhetherItSupportsSoundModes)
{
    Soundbar soundbar;
    EXPECT_TRUE(soundbar.SupportsSoundMode(kMac));
    EXPECT_EQ(soundbar.DeviceInfo(), Identified({1, 0, 0, 0}));
    EXPECT_EQ(soundbar.SetSupportsSoundMode(Identified({0, 0, 0, 0})), 0);
    EXPECT_FALSE(soundbar.SupportsSoundMode(kMac));
    EXPECT_EQ(soundbar.SetSupportsSoundMode(Identified({0xfe, 0xff, 0xff, 0xff})), 0);
    EXPECT_TRUE(soundbar.SupportsSoundMode(kMac));
    EXPECT_EQ(soundbar.DeviceInfo(), Identified({0xfe, 0xff, 0xff, 0xff}));
    EXPECT_EQ(soundbar.ToJson()["supportsSoundMode"], -2);
}

TEST(SoundbarTest, RefusesWhatDoesNotTellSupport)
{
    Soundbar soundbar;
    EXPECT_EQ(soundbar.SetSupportsSoundMode(Identified({0, 0, 0})), -1);
    EXPECT_EQ(soundbar.SetSupportsSoundMode(Identified({0, 0, 0, 0, 0})), -1);
    EXPECT_EQ(soundbar.SetSupportsSoundMode(Joined({kOtherMac, kIp, {0, 0, 0, 0}})), -1);
    EXPECT_TRUE(soundbar.SupportsSoundMode(kMac));
}

TEST(SoundbarTest, TellsItsProtocolVersion)
{
    const Bytes version = Soundbar().ProtocolVersion(kMac);
    ASSERT_THAT(version, SizeIs(24));
    EXPECT_THAT(Bytes(version.begin(), version.begin() + 4), ElementsAre(2, 0, 0, 0));
    EXPECT_EQ(std::string(version.begin() + 4, version.begin() + 22), "KIV sound mode 2.0");
    EXPECT_THAT(Bytes(version.begin() + 22, version.end()), ElementsAre(0, 0));
}

TEST(SoundbarTest, AnswersToItsOwnAddressOnly)
{
    const Soundbar soundbar;
    for (const Bytes& mac : {Bytes(), Bytes(5), kOtherMac, Joined({kMac, {0}})}) {
        EXPECT_FALSE(soundbar.SupportsSoundMode(mac));
        EXPECT_THAT(soundbar.ProtocolVersion(mac), IsEmpty());
    }
}

} // namespace
} // namespace kiv::simulator
