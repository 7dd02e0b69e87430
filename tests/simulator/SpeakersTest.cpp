#include "simulator/Speakers.h"

#include "simulator/SimulatorTest.h"

namespace kiv::simulator {
namespace {

using ::testing::Each;
using ::testing::SizeIs;

Bytes MacList(const std::vector<std::uint8_t>& lastBytes)
{
    Writer list;
    list.Int32(static_cast<int>(lastBytes.size()));
    for (const std::uint8_t last : lastBytes) {
        list.Append(SpeakerMac(last));
    }
    return list.Written();
}

Bytes MobileMessage(std::uint8_t lastByte)
{
    return Writer().Int32(6).Append(SpeakerMac(lastByte)).Written();
}

std::string Name(const Bytes& record)
{
    return {record.begin(), std::find(record.begin(), record.end(), 0)};
}

class SpeakersTest : public ::testing::Test {
protected:
    Speakers speakers_;
};

TEST_F(SpeakersTest, ConnectsNewOnes)
{
    EXPECT_EQ(speakers_.ConnectNew(MacList({0x01, 0x06, 0xee, 0x06})), 1);
    EXPECT_EQ(speakers_.ConnectionTypeOfNode(6), 1);
    EXPECT_EQ(speakers_.ConnectNewOutdoors(MacList({0x06, 0x07})), 1);
    EXPECT_EQ(speakers_.ConnectionTypeOfNode(6), 1);
    EXPECT_EQ(speakers_.ConnectionTypeOfNode(7), 2);
    EXPECT_EQ(speakers_.ToJson()["discovered"].size(), 1U);
}

TEST_F(SpeakersTest, RefusesAMalformedList)
{
    EXPECT_EQ(speakers_.ConnectNew({}), -1);
    EXPECT_EQ(speakers_.ConnectNewOutdoors(Bytes(10)), -1);
}

TEST_F(SpeakersTest, ConnectsByMobile)
{
    EXPECT_EQ(speakers_.ConnectByMobile(MobileMessage(0x05)), 0);
    EXPECT_EQ(speakers_.ConnectionTypeOfNode(5), 1);
    EXPECT_EQ(speakers_.ConnectByMobile(MobileMessage(0xee)), -1);
    EXPECT_EQ(speakers_.ConnectByMobile(Bytes(4)), -1);
}

TEST_F(SpeakersTest, ConnectsDirectly)
{
    EXPECT_EQ(speakers_.ConnectDirectly(5), 0);
    EXPECT_EQ(speakers_.ConnectDirectly(1), 0);
    EXPECT_EQ(speakers_.ConnectionTypeOfNode(5), 2);
    EXPECT_EQ(speakers_.ConnectionTypeOfNode(1), 2);
    EXPECT_EQ(speakers_.ConnectDirectly(8), -1);
}

TEST_F(SpeakersTest, TellsConnectionTypes)
{
    EXPECT_EQ(speakers_.ConnectionType({}), 0);
    EXPECT_EQ(speakers_.ConnectionType(StartRecord(0, 0x05)), 0);
    EXPECT_EQ(speakers_.ConnectionType(Joined({StartRecord(0, 0x01), StartRecord(0, 0xa4)})), 1);
    EXPECT_EQ(speakers_.ConnectionType(Joined({StartRecord(0, 0x01), StartRecord(0, 0x05)})), 3);
    EXPECT_EQ(speakers_.ConnectionType(Joined({StartRecord(0, 0x01), StartRecord(0, 0xee)})), -1);
    EXPECT_EQ(speakers_.ConnectionType(Bytes(85)), -1);
    EXPECT_EQ(speakers_.ConnectionTypeOfNode(5), 0);
    EXPECT_EQ(speakers_.ConnectionTypeOfNode(0), -1);
}

TEST_F(SpeakersTest, ConnectedOnesAreListedByTheirGroup)
{
    EXPECT_EQ(speakers_.ListCount(), 2);
    EXPECT_THAT(speakers_.Lists(), SizeIs(2 * 1086));
    EXPECT_EQ(Name(speakers_.Lists()), "Living room");

    speakers_.ConnectDirectly(6);
    EXPECT_EQ(speakers_.ListCount(), 3);
    const Bytes lists = speakers_.Lists();
    ASSERT_THAT(lists, SizeIs(3 * 1086));
    EXPECT_EQ(Name({lists.begin() + 2 * 1086, lists.end()}), "Terrace");
    EXPECT_EQ(lists[2 * 1086 + 151], 1);
}

TEST_F(SpeakersTest, NodesAreAllThatCanBeSeen)
{
    EXPECT_THAT(speakers_.Nodes(), SizeIs(7 * 134));
    EXPECT_EQ(speakers_.Nodes()[4 * 134 + 124], 0);
    speakers_.ConnectDirectly(5);
    EXPECT_EQ(speakers_.Nodes()[4 * 134 + 124], 2);
}

TEST_F(SpeakersTest, ActiveInfoNamesThoseThatPlay)
{
    EXPECT_THAT(speakers_.ActiveInfo(), SizeIs(155));
    EXPECT_THAT(speakers_.ActiveInfo(), Each(0));

    speakers_.Play({speakers_.Find(3)});
    EXPECT_THAT(speakers_.ActiveInfo(), SizeIs(155 + 183));
    EXPECT_EQ(Name(speakers_.ActiveInfo()), "Subwoofer");

    speakers_.Play({speakers_.Find(1), speakers_.Find(2)});
    EXPECT_EQ(Name(speakers_.ActiveInfo()), "Living room");

    speakers_.Play({speakers_.Find(1), speakers_.Find(2), speakers_.Find(4)});
    EXPECT_EQ(Name(speakers_.ActiveInfo()), "Living room + Kitchen");
    EXPECT_THAT(speakers_.ActiveInfo(), SizeIs(155 + 3 * 183));
}

TEST_F(SpeakersTest, ANewNameShowsEverywhere)
{
    EXPECT_EQ(speakers_.Rename(SpeakerMac(0x01), 0, "Door"), 0);
    speakers_.Play({speakers_.Find(1)});
    EXPECT_EQ(Name(speakers_.ActiveInfo()), "Door");
    EXPECT_EQ(Name(speakers_.Nodes()), "Door");
    const Bytes lists = speakers_.Lists();
    EXPECT_EQ(Name({lists.begin() + 155, lists.end()}), "Door");
    EXPECT_EQ(speakers_.ToJson()["speakers"][0]["name"], "Door");

    EXPECT_EQ(speakers_.Rename(SpeakerMac(0x01), 0, ""), 0);
    EXPECT_EQ(Name(speakers_.Nodes()), "");
}

TEST_F(SpeakersTest, KeepsTheTestOfEachSpeaker)
{
    EXPECT_EQ(speakers_.ToJson()["speakers"][0]["test"], nullptr);
    EXPECT_EQ(speakers_.StartTest(SpeakerMac(0x01), 1, 2, 3), 0);
    EXPECT_EQ(speakers_.StartTest(SpeakerMac(0x02), 4, 5, 6), 0);
    EXPECT_EQ(speakers_.StopTest(SpeakerMac(0x01)), 0);
    EXPECT_EQ(speakers_.StopTest(SpeakerMac(0x01)), 0);
    EXPECT_EQ(speakers_.ToJson()["speakers"][0]["test"], nullptr);
    EXPECT_EQ(
        speakers_.ToJson()["speakers"][1]["test"],
        (nlohmann::json{{"parameter", 4}, {"channelType", 5}, {"extra", 6}}));
}

TEST_F(SpeakersTest, UnknownOnesAreRefused)
{
    for (const std::uint8_t last : Bytes{0xee, 0x05}) {
        EXPECT_EQ(speakers_.Rename(SpeakerMac(last), 0, "x"), -1);
        EXPECT_EQ(speakers_.StartTest(SpeakerMac(last), 1, 2, 3), -1);
        EXPECT_EQ(speakers_.StopTest(SpeakerMac(last)), -1);
    }
    EXPECT_EQ(speakers_.ToJson()["discovered"][0]["name"], "Bedroom");
}

TEST_F(SpeakersTest, ANodeLeavesTheWatcherOnce)
{
    EXPECT_EQ(speakers_.StopWatching(2), 1);
    EXPECT_EQ(speakers_.ToJson()["speakers"][1]["watched"], false);
    EXPECT_EQ(speakers_.Nodes()[134 + 128], 0);
    EXPECT_EQ(speakers_.StopWatching(2), 0);
    EXPECT_EQ(speakers_.StopWatching(99), 0);
}

} // namespace
} // namespace kiv::simulator
