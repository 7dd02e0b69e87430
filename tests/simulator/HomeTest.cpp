#include "simulator/Home.h"

#include "simulator/SimulatorTest.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace kiv::simulator {
namespace {

class HomeTest : public ::testing::Test {
protected:
    Home home_;
};

TEST_F(HomeTest, StartsTheSpeakersOfTheRecords)
{
    EXPECT_EQ(home_.StartSpeakers(Joined({StartRecord(7, 0x02), StartRecord(-8, 0xa4)})), 2);

    const nlohmann::json speakers = home_.ToJson()["speakers"];
    EXPECT_EQ(speakers[0]["active"], false);
    EXPECT_EQ(speakers[1]["active"], true);
    EXPECT_EQ(speakers[1]["channel"], 7);
    EXPECT_EQ(speakers[3]["active"], true);
    EXPECT_EQ(speakers[3]["channel"], -8);
}

TEST_F(HomeTest, StartingReplacesTheSpeakersThatPlay)
{
    home_.StartSpeakers(StartRecord(1, 0x01));
    EXPECT_EQ(home_.StartSpeakers(StartRecord(1, 0x02)), 1);
    EXPECT_EQ(home_.ToJson()["speakers"][0]["active"], false);
    EXPECT_EQ(home_.StartSpeakers({}), 0);
    EXPECT_EQ(home_.ToJson()["speakers"][1]["active"], false);
}

TEST_F(HomeTest, UnknownAndRepeatedSpeakersDoNotCount)
{
    EXPECT_EQ(home_.StartSpeakers(Joined({StartRecord(1, 0x01), StartRecord(2, 0x01), StartRecord(3, 0xee)})), 1);
}

TEST_F(HomeTest, RefusesWhatIsNoWholeNumberOfRecords)
{
    home_.StartSpeakers(StartRecord(1, 0x01));
    for (const std::size_t size : {1U, 85U, 87U, 171U}) {
        EXPECT_EQ(home_.StartSpeakers(Bytes(size)), -1) << size;
    }
    EXPECT_EQ(home_.SurroundChannels(), 1);
}

TEST_F(HomeTest, SurroundChannelsFollowTheSpeakersThatPlay)
{
    EXPECT_EQ(home_.SurroundChannels(), 0);
    home_.StartSpeakers(Joined({StartRecord(1, 0x01), StartRecord(2, 0x02), StartRecord(3, 0x03)}));
    EXPECT_EQ(home_.SurroundChannels(), 3);
    EXPECT_EQ(home_.StopSpeakers(5), 5);
    EXPECT_EQ(home_.SurroundChannels(), 0);
    EXPECT_EQ(home_.ToJson()["speakers"][0]["active"], false);
}

TEST_F(HomeTest, MultiRoomHasNoSurroundChannels)
{
    EXPECT_EQ(home_.SetSettingMode(81, 3), 0);
    home_.StartSpeakers(StartRecord(1, 0x01));
    EXPECT_EQ(home_.SurroundChannels(), 0);
    EXPECT_EQ(home_.ToJson()["settingMode"], 81);
    EXPECT_EQ(home_.ToJson()["startReason"], 3);
}

TEST_F(HomeTest, DisabledSurroundLeavesTheSpeakersPlaying)
{
    home_.StartSpeakers(StartRecord(1, 0x01));
    EXPECT_EQ(home_.DisableSurround(), 0);
    EXPECT_EQ(home_.SurroundChannels(), 0);
    EXPECT_EQ(home_.ToJson()["speakers"][0]["active"], true);
}

TEST_F(HomeTest, SpeakersThatAreOnlySeenAreNotStartedByTheirRecords)
{
    EXPECT_EQ(home_.StartSpeakers(Joined({StartRecord(1, 0x01), StartRecord(1, 0x05)})), 1);
    EXPECT_EQ(home_.ToJson()["discovered"][0]["active"], false);
}

TEST_F(HomeTest, StartsASpeakerByItsLabel)
{
    home_.StartSpeakers(StartRecord(1, 0x01));
    EXPECT_EQ(home_.StartSpeakerById({'K', 'I', 'V', 'A', '4'}, 6, 81, 9), 1);

    const nlohmann::json state = home_.ToJson();
    EXPECT_EQ(state["speakers"][0]["active"], false);
    EXPECT_EQ(state["speakers"][3]["active"], true);
    EXPECT_EQ(state["speakers"][3]["channel"], 6);
    EXPECT_EQ(state["settingMode"], 81);
    EXPECT_EQ(state["startReason"], 9);
}

TEST_F(HomeTest, StartsASpeakerByItsNode)
{
    EXPECT_EQ(home_.StartSpeakerNode(2, 81, 9), 1);

    const nlohmann::json state = home_.ToJson();
    EXPECT_EQ(state["speakers"][1]["active"], true);
    EXPECT_EQ(state["settingMode"], 81);
    EXPECT_EQ(state["startReason"], 9);
}

TEST_F(HomeTest, StartsAGroup)
{
    home_.StartSpeakers(StartRecord(7, 0x01));
    EXPECT_EQ(home_.StartGroup(1), 3);
    EXPECT_EQ(home_.ToJson()["speakers"][0]["channel"], 7);
    EXPECT_EQ(home_.SurroundChannels(), 3);
    EXPECT_EQ(home_.StartGroup(2), 1);
    EXPECT_EQ(home_.SurroundChannels(), 1);
}

TEST_F(HomeTest, StartingConnectsWhatIsOnlySeen)
{
    home_.StartSpeakerById({'K', 'I', 'V', '0', '5'}, 1, 80, 1);
    EXPECT_EQ(home_.ToJson()["speakers"][4]["connection"], "network");
    EXPECT_EQ(home_.StartGroup(4), 2);
    EXPECT_EQ(home_.ToJson()["speakers"].size(), 7U);

    Home other;
    other.StartSpeakerNode(5, 80, 1);
    EXPECT_EQ(other.ToJson()["speakers"][4]["active"], true);
}

TEST_F(HomeTest, StartingADirectlyConnectedSpeakerKeepsItSo)
{
    home_.Speakers().ConnectDirectly(6);
    home_.StartGroup(4);
    EXPECT_EQ(home_.ToJson()["speakers"][4]["connection"], "direct");
    EXPECT_EQ(home_.ToJson()["speakers"][5]["connection"], "network");
}

TEST_F(HomeTest, RefusesToStartWhatDoesNotExist)
{
    home_.StartSpeakers(StartRecord(1, 0x01));
    EXPECT_EQ(home_.StartSpeakerById({'K', 'I', 'V', 'E', 'E'}, 1, 81, 9), -1);
    EXPECT_EQ(home_.StartSpeakerById({'k', 'i', 'v', 'a', '4'}, 1, 81, 9), -1);
    EXPECT_EQ(home_.StartSpeakerNode(8, 81, 9), -1);
    EXPECT_EQ(home_.StartSpeakerNode(-1, 81, 9), -1);
    EXPECT_EQ(home_.StartGroup(0), -1);
    EXPECT_EQ(home_.StartGroup(5), -1);
    EXPECT_EQ(home_.SurroundChannels(), 1);
    EXPECT_EQ(home_.SettingMode(), 80);
}

TEST_F(HomeTest, KeepsTheModes)
{
    EXPECT_EQ(home_.SettingMode(), 80);
    EXPECT_EQ(home_.TavrinUiMode(), 80);
    home_.SetSettingMode(7, 0);
    EXPECT_EQ(home_.SetTavrinUiMode(81), 81);
    EXPECT_EQ(home_.SettingMode(), 7);
    EXPECT_EQ(home_.TavrinUiMode(), 81);
}

TEST_F(HomeTest, TavrinCanBeSelectedUntilItIs)
{
    EXPECT_TRUE(home_.CanSelectTavrin());
    EXPECT_FALSE(home_.CanCancelTavrin());
    home_.SetSettingMode(81, 0);
    EXPECT_FALSE(home_.CanSelectTavrin());
    EXPECT_FALSE(home_.PreSelectTavrin());
    EXPECT_TRUE(home_.CanCancelTavrin());
}

TEST_F(HomeTest, PreselectedTavrinCanBeCancelled)
{
    EXPECT_TRUE(home_.PreSelectTavrin());
    EXPECT_TRUE(home_.CanSelectTavrin());
    EXPECT_TRUE(home_.CanCancelTavrin());
    EXPECT_EQ(home_.ToJson()["tavrinPreSelected"], true);
    home_.SetSettingMode(80, 0);
    EXPECT_FALSE(home_.CanCancelTavrin());
}

TEST_F(HomeTest, SurroundKeepsTavrinSettingsClosed)
{
    EXPECT_TRUE(home_.CanEnterTavrinSettings());
    home_.StartGroup(1);
    EXPECT_FALSE(home_.CanEnterTavrinSettings());
    home_.DisableSurround();
    EXPECT_TRUE(home_.CanEnterTavrinSettings());
    home_.SetSettingMode(81, 0);
    home_.StartGroup(1);
    EXPECT_TRUE(home_.CanEnterTavrinSettings());
}

TEST_F(HomeTest, AtmosTellsItsBeginning)
{
    EXPECT_FALSE(home_.SetReceiverAtmos(false));
    EXPECT_TRUE(home_.SetReceiverAtmos(true));
    EXPECT_TRUE(home_.ReceiverHasAtmos());
    EXPECT_FALSE(home_.SetReceiverAtmos(true));
    EXPECT_FALSE(home_.SetReceiverAtmos(false));
    EXPECT_FALSE(home_.ReceiverHasAtmos());
    EXPECT_TRUE(home_.SetReceiverAtmos(true));
}

} // namespace
} // namespace kiv::simulator
