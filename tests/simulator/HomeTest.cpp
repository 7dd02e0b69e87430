#include "simulator/Home.h"

#include "SimulatorTest.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace kiv::simulator {
namespace {

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

TEST(HomeTest, SpeakersThatAreOnlySeenAreNotStartedByTheirRecords)
{
    Home home;
    EXPECT_EQ(home.StartSpeakers(Joined({StartRecord(1, 0x01), StartRecord(1, 0x05)})), 1);
    EXPECT_EQ(home.ToJson()["discovered"][0]["active"], false);
}

TEST(HomeTest, StartsASpeakerByItsLabel)
{
    Home home;
    home.StartSpeakers(StartRecord(1, 0x01));
    EXPECT_EQ(home.StartSpeakerById({'K', 'I', 'V', 'A', '4'}, 6, 81, 9), 1);

    const nlohmann::json model = home.ToJson();
    EXPECT_EQ(model["speakers"][0]["active"], false);
    EXPECT_EQ(model["speakers"][3]["active"], true);
    EXPECT_EQ(model["speakers"][3]["channel"], 6);
    EXPECT_EQ(model["settingMode"], 81);
    EXPECT_EQ(model["startReason"], 9);
}

TEST(HomeTest, StartsASpeakerByItsNode)
{
    Home home;
    EXPECT_EQ(home.StartSpeakerNode(2, 81, 9), 1);

    const nlohmann::json model = home.ToJson();
    EXPECT_EQ(model["speakers"][1]["active"], true);
    EXPECT_EQ(model["settingMode"], 81);
    EXPECT_EQ(model["startReason"], 9);
}

TEST(HomeTest, StartsAGroup)
{
    Home home;
    home.StartSpeakers(StartRecord(7, 0x01));
    EXPECT_EQ(home.StartGroup(1), 3);
    EXPECT_EQ(home.ToJson()["speakers"][0]["channel"], 7);
    EXPECT_EQ(home.SurroundChannels(), 3);
    EXPECT_EQ(home.StartGroup(2), 1);
    EXPECT_EQ(home.SurroundChannels(), 1);
}

TEST(HomeTest, StartingConnectsWhatIsOnlySeen)
{
    Home home;
    home.StartSpeakerById({'K', 'I', 'V', '0', '5'}, 1, 80, 1);
    EXPECT_EQ(home.ToJson()["speakers"][4]["connection"], "network");
    EXPECT_EQ(home.StartGroup(4), 2);
    EXPECT_EQ(home.ToJson()["speakers"].size(), 7U);

    Home other;
    other.StartSpeakerNode(5, 80, 1);
    EXPECT_EQ(other.ToJson()["speakers"][4]["active"], true);
}

TEST(HomeTest, StartingADirectlyConnectedSpeakerKeepsItSo)
{
    Home home;
    home.Speakers().ConnectDirectly(6);
    home.StartGroup(4);
    EXPECT_EQ(home.ToJson()["speakers"][4]["connection"], "direct");
    EXPECT_EQ(home.ToJson()["speakers"][5]["connection"], "network");
}

TEST(HomeTest, RefusesToStartWhatDoesNotExist)
{
    Home home;
    home.StartSpeakers(StartRecord(1, 0x01));
    EXPECT_EQ(home.StartSpeakerById({'K', 'I', 'V', 'E', 'E'}, 1, 81, 9), -1);
    EXPECT_EQ(home.StartSpeakerById({'k', 'i', 'v', 'a', '4'}, 1, 81, 9), -1);
    EXPECT_EQ(home.StartSpeakerNode(8, 81, 9), -1);
    EXPECT_EQ(home.StartSpeakerNode(-1, 81, 9), -1);
    EXPECT_EQ(home.StartGroup(0), -1);
    EXPECT_EQ(home.StartGroup(5), -1);
    EXPECT_EQ(home.SurroundChannels(), 1);
    EXPECT_EQ(home.SettingMode(), 80);
}

TEST(HomeTest, KeepsTheModes)
{
    Home home;
    EXPECT_EQ(home.SettingMode(), 80);
    EXPECT_EQ(home.TavrinUiMode(), 80);
    home.SetSettingMode(7, 0);
    EXPECT_EQ(home.SetTavrinUiMode(81), 81);
    EXPECT_EQ(home.SettingMode(), 7);
    EXPECT_EQ(home.TavrinUiMode(), 81);
}

TEST(HomeTest, TavrinCanBeSelectedUntilItIs)
{
    Home home;
    EXPECT_TRUE(home.CanSelectTavrin());
    EXPECT_FALSE(home.CanCancelTavrin());
    home.SetSettingMode(81, 0);
    EXPECT_FALSE(home.CanSelectTavrin());
    EXPECT_FALSE(home.PreSelectTavrin());
    EXPECT_TRUE(home.CanCancelTavrin());
}

TEST(HomeTest, PreselectedTavrinCanBeCancelled)
{
    Home home;
    EXPECT_TRUE(home.PreSelectTavrin());
    EXPECT_TRUE(home.CanSelectTavrin());
    EXPECT_TRUE(home.CanCancelTavrin());
    EXPECT_EQ(home.ToJson()["tavrinPreSelected"], true);
    home.SetSettingMode(80, 0);
    EXPECT_FALSE(home.CanCancelTavrin());
}

TEST(HomeTest, SurroundKeepsTavrinSettingsClosed)
{
    Home home;
    EXPECT_TRUE(home.CanEnterTavrinSettings());
    home.StartGroup(1);
    EXPECT_FALSE(home.CanEnterTavrinSettings());
    home.DisableSurround();
    EXPECT_TRUE(home.CanEnterTavrinSettings());
    home.SetSettingMode(81, 0);
    home.StartGroup(1);
    EXPECT_TRUE(home.CanEnterTavrinSettings());
}

TEST(HomeTest, AtmosTellsItsBeginning)
{
    Home home;
    EXPECT_FALSE(home.SetReceiverAtmos(false));
    EXPECT_TRUE(home.SetReceiverAtmos(true));
    EXPECT_TRUE(home.ReceiverHasAtmos());
    EXPECT_FALSE(home.SetReceiverAtmos(true));
    EXPECT_FALSE(home.SetReceiverAtmos(false));
    EXPECT_FALSE(home.ReceiverHasAtmos());
    EXPECT_TRUE(home.SetReceiverAtmos(true));
}

} // namespace
} // namespace kiv::simulator
