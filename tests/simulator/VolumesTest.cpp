#include "simulator/Volumes.h"

#include "simulator/SimulatorTest.h"

#include <climits>

namespace kiv::simulator {
namespace {

using ::testing::IsEmpty;

class VolumesTest : public ::testing::Test {
protected:
    Bytes Report(int node) { return WriteVolume(*speakers_.Find(node)); }

    Speakers speakers_;
    Volumes volumes_{speakers_};
};

TEST_F(VolumesTest, ASetVolumeIsReadAndListed)
{
    EXPECT_EQ(volumes_.Set(SpeakerMac(0x01), 0, 33), 33);
    EXPECT_EQ(volumes_.Get(SpeakerMac(0x01)), 33);
    EXPECT_EQ(volumes_.Get(SpeakerMac(0x02)), 20);
    EXPECT_EQ(speakers_.Nodes()[116], 33);
    EXPECT_EQ(speakers_.Lists()[155 + 116], 33);
    EXPECT_EQ(speakers_.ToJson()["speakers"][0]["volume"], 33);
}

TEST_F(VolumesTest, Steps)
{
    EXPECT_EQ(volumes_.Increase(SpeakerMac(0x01)), 21);
    EXPECT_EQ(volumes_.Increase(SpeakerMac(0x01)), 22);
    EXPECT_EQ(volumes_.Decrease(SpeakerMac(0x01)), 21);
    EXPECT_EQ(volumes_.Reset(SpeakerMac(0x01)), 25);
}

TEST_F(VolumesTest, StayInTheirRange)
{
    EXPECT_EQ(volumes_.Set(SpeakerMac(0x01), 0, INT_MAX), 100);
    EXPECT_EQ(volumes_.Increase(SpeakerMac(0x01)), 100);
    EXPECT_EQ(volumes_.Set(SpeakerMac(0x01), 0, INT_MIN), 0);
    EXPECT_EQ(volumes_.Decrease(SpeakerMac(0x01)), 0);
}

TEST_F(VolumesTest, ListsLeaveUnknownSpeakersOut)
{
    const Bytes records = Joined(
        {StartRecord(0, 0xa4), StartRecord(0, 0x01), StartRecord(0, 0xee), StartRecord(0, 0x05), StartRecord(0, 0x01)});
    EXPECT_EQ(volumes_.IncreaseList(records), 2);
    EXPECT_EQ(volumes_.Get(SpeakerMac(0x01)), 21);
    EXPECT_EQ(volumes_.Get(SpeakerMac(0xa4)), 11);
    EXPECT_EQ(volumes_.DecreaseList(StartRecord(0, 0x01)), 1);
    EXPECT_EQ(volumes_.Get(SpeakerMac(0x01)), 20);
    EXPECT_EQ(volumes_.ResetList(StartRecord(0, 0x01)), 1);
    EXPECT_EQ(volumes_.Get(SpeakerMac(0x01)), 25);
    EXPECT_EQ(volumes_.GetList(records), 2);
    EXPECT_EQ(volumes_.GetList({}), 0);
}

TEST_F(VolumesTest, ResetAllLeavesOutWhoIsNotConnected)
{
    EXPECT_EQ(volumes_.ResetAll(), 4);
    EXPECT_EQ(volumes_.Get(SpeakerMac(0xa4)), 25);
    EXPECT_EQ(speakers_.ToJson()["discovered"][0]["volume"], 10);
    speakers_.ConnectDirectly(5);
    EXPECT_EQ(volumes_.ResetAll(), 5);
}

TEST_F(VolumesTest, RefusesUnknownSpeakersAndMalformedLists)
{
    EXPECT_EQ(volumes_.Get(SpeakerMac(0xee)), -1);
    EXPECT_EQ(volumes_.Set(SpeakerMac(0x05), 0, 50), -1);
    EXPECT_EQ(volumes_.Increase(SpeakerMac(0xee)), -1);
    EXPECT_EQ(volumes_.Decrease(SpeakerMac(0xee)), -1);
    EXPECT_EQ(volumes_.Reset(SpeakerMac(0xee)), -1);
    EXPECT_EQ(volumes_.GetList(Bytes(85)), -1);
    EXPECT_EQ(volumes_.IncreaseList(Bytes(87)), -1);
    EXPECT_EQ(volumes_.DecreaseList(Bytes(1)), -1);
    EXPECT_EQ(volumes_.ResetList(Bytes(171)), -1);
    EXPECT_THAT(volumes_.TakeReport(), IsEmpty());
}

TEST_F(VolumesTest, ReportsWhatWasReadOrSet)
{
    volumes_.Get(SpeakerMac(0x01));
    EXPECT_EQ(volumes_.TakeReport(), Report(1));
    EXPECT_THAT(volumes_.TakeReport(), IsEmpty());

    volumes_.Set(SpeakerMac(0x02), 0, 44);
    EXPECT_EQ(volumes_.TakeReport(), Report(2));

    volumes_.GetList(Joined({StartRecord(0, 0xa4), StartRecord(0, 0x01)}));
    EXPECT_EQ(volumes_.TakeReport(), Joined({Report(1), Report(4)}));

    volumes_.ResetAll();
    EXPECT_EQ(volumes_.TakeReport(), Joined({Report(1), Report(2), Report(3), Report(4)}));
}

} // namespace
} // namespace kiv::simulator
