#include "simulator/Home.h"

#include "SimulatorTest.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace kiv::simulator {
namespace {

Bytes Joined(const std::vector<Bytes>& records)
{
    Bytes bytes;
    for (const Bytes& record : records) {
        bytes.insert(bytes.end(), record.begin(), record.end());
    }
    return bytes;
}

TEST(HomeTest, StartsTheSpeakersOfTheRecords)
{
    Home home;
    EXPECT_EQ(home.StartSpeakers(Joined({StartRecord(7, 0x02), StartRecord(-8, 0xa4)})), 2);

    const nlohmann::json speakers = home.ToJson()["speakers"];
    EXPECT_EQ(speakers[0]["active"], false);
    EXPECT_EQ(speakers[1]["active"], true);
    EXPECT_EQ(speakers[1]["channel"], 7);
    EXPECT_EQ(speakers[3]["active"], true);
    EXPECT_EQ(speakers[3]["channel"], -8);
}

TEST(HomeTest, StartingReplacesTheSpeakersThatPlay)
{
    Home home;
    home.StartSpeakers(StartRecord(1, 0x01));
    EXPECT_EQ(home.StartSpeakers(StartRecord(1, 0x02)), 1);
    EXPECT_EQ(home.ToJson()["speakers"][0]["active"], false);
    EXPECT_EQ(home.StartSpeakers({}), 0);
    EXPECT_EQ(home.ToJson()["speakers"][1]["active"], false);
}

TEST(HomeTest, UnknownAndRepeatedSpeakersDoNotCount)
{
    Home home;
    EXPECT_EQ(home.StartSpeakers(Joined({StartRecord(1, 0x01), StartRecord(2, 0x01), StartRecord(3, 0xee)})), 1);
}

TEST(HomeTest, RefusesWhatIsNoWholeNumberOfRecords)
{
    Home home;
    home.StartSpeakers(StartRecord(1, 0x01));
    for (const std::size_t size : {1U, 85U, 87U, 171U}) {
        EXPECT_EQ(home.StartSpeakers(Bytes(size)), -1) << size;
    }
    EXPECT_EQ(home.SurroundChannels(), 1);
}

TEST(HomeTest, SurroundChannelsFollowTheSpeakersThatPlay)
{
    Home home;
    EXPECT_EQ(home.SurroundChannels(), 0);
    home.StartSpeakers(Joined({StartRecord(1, 0x01), StartRecord(2, 0x02), StartRecord(3, 0x03)}));
    EXPECT_EQ(home.SurroundChannels(), 3);
    EXPECT_EQ(home.StopSpeakers(5), 5);
    EXPECT_EQ(home.SurroundChannels(), 0);
    EXPECT_EQ(home.ToJson()["speakers"][0]["active"], false);
}

TEST(HomeTest, MultiRoomHasNoSurroundChannels)
{
    Home home;
    EXPECT_EQ(home.SetSettingMode(81, 3), 0);
    home.StartSpeakers(StartRecord(1, 0x01));
    EXPECT_EQ(home.SurroundChannels(), 0);
    EXPECT_EQ(home.ToJson()["settingMode"], 81);
    EXPECT_EQ(home.ToJson()["startReason"], 3);
}

TEST(HomeTest, DisabledSurroundLeavesTheSpeakersPlaying)
{
    Home home;
    home.StartSpeakers(StartRecord(1, 0x01));
    EXPECT_EQ(home.DisableSurround(), 0);
    EXPECT_EQ(home.SurroundChannels(), 0);
    EXPECT_EQ(home.ToJson()["speakers"][0]["active"], true);
}

TEST(HomeTest, ANodeLeavesTheWatcherOnce)
{
    Home home;
    EXPECT_EQ(home.Speakers().StopWatching(2), 1);
    EXPECT_EQ(home.ToJson()["speakers"][1]["watched"], false);
    EXPECT_EQ(home.Speakers().StopWatching(2), 0);
    EXPECT_EQ(home.Speakers().StopWatching(99), 0);
}

TEST(HomeTest, AtmosTellsAChange)
{
    Home home;
    EXPECT_FALSE(home.SetReceiverAtmos(false));
    EXPECT_TRUE(home.SetReceiverAtmos(true));
    EXPECT_TRUE(home.ReceiverHasAtmos());
    EXPECT_FALSE(home.SetReceiverAtmos(true));
}

} // namespace
} // namespace kiv::simulator
