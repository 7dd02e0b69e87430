#include "simulator/Speakers.h"

#include "SimulatorTest.h"

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

TEST(SpeakersTest, ConnectsNewOnes)
{
    Speakers speakers;
    EXPECT_EQ(speakers.ConnectNew(MacList({0x01, 0x06, 0xee, 0x06})), 1);
    EXPECT_EQ(speakers.ConnectionTypeOfNode(6), 1);
    EXPECT_EQ(speakers.ConnectNewOutdoors(MacList({0x06, 0x07})), 1);
    EXPECT_EQ(speakers.ConnectionTypeOfNode(6), 1);
    EXPECT_EQ(speakers.ConnectionTypeOfNode(7), 2);
    EXPECT_EQ(speakers.ToJson()["discovered"].size(), 1U);
}

TEST(SpeakersTest, RefusesAMalformedList)
{
    Speakers speakers;
    EXPECT_EQ(speakers.ConnectNew({}), -1);
    EXPECT_EQ(speakers.ConnectNewOutdoors(Bytes(10)), -1);
}

TEST(SpeakersTest, ConnectsByMobile)
{
    Speakers speakers;
    EXPECT_EQ(speakers.ConnectByMobile(MobileMessage(0x05)), 0);
    EXPECT_EQ(speakers.ConnectionTypeOfNode(5), 1);
    EXPECT_EQ(speakers.ConnectByMobile(MobileMessage(0xee)), -1);
    EXPECT_EQ(speakers.ConnectByMobile(Bytes(4)), -1);
}

TEST(SpeakersTest, ConnectsDirectly)
{
    Speakers speakers;
    EXPECT_EQ(speakers.ConnectDirectly(5), 0);
    EXPECT_EQ(speakers.ConnectDirectly(1), 0);
    EXPECT_EQ(speakers.ConnectionTypeOfNode(5), 2);
    EXPECT_EQ(speakers.ConnectionTypeOfNode(1), 2);
    EXPECT_EQ(speakers.ConnectDirectly(8), -1);
}

TEST(SpeakersTest, TellsConnectionTypes)
{
    Speakers speakers;
    EXPECT_EQ(speakers.ConnectionType({}), 0);
    EXPECT_EQ(speakers.ConnectionType(StartRecord(0, 0x05)), 0);
    EXPECT_EQ(speakers.ConnectionType(Joined({StartRecord(0, 0x01), StartRecord(0, 0xa4)})), 1);
    EXPECT_EQ(speakers.ConnectionType(Joined({StartRecord(0, 0x01), StartRecord(0, 0x05)})), 3);
    EXPECT_EQ(speakers.ConnectionType(Joined({StartRecord(0, 0x01), StartRecord(0, 0xee)})), -1);
    EXPECT_EQ(speakers.ConnectionType(Bytes(85)), -1);
    EXPECT_EQ(speakers.ConnectionTypeOfNode(5), 0);
    EXPECT_EQ(speakers.ConnectionTypeOfNode(0), -1);
}

TEST(SpeakersTest, ConnectedOnesAreListedByTheirGroup)
{
    Speakers speakers;
    EXPECT_EQ(speakers.ListCount(), 2);
    EXPECT_THAT(speakers.Lists(), SizeIs(2 * 1086));
    EXPECT_EQ(Name(speakers.Lists()), "Living room");

    speakers.ConnectDirectly(6);
    EXPECT_EQ(speakers.ListCount(), 3);
    const Bytes lists = speakers.Lists();
    ASSERT_THAT(lists, SizeIs(3 * 1086));
    EXPECT_EQ(Name({lists.begin() + 2 * 1086, lists.end()}), "Terrace");
    EXPECT_EQ(lists[2 * 1086 + 151], 1);
}

TEST(SpeakersTest, NodesAreAllThatCanBeSeen)
{
    Speakers speakers;
    EXPECT_THAT(speakers.Nodes(), SizeIs(7 * 134));
    EXPECT_EQ(speakers.Nodes()[4 * 134 + 124], 0);
    speakers.ConnectDirectly(5);
    EXPECT_EQ(speakers.Nodes()[4 * 134 + 124], 2);
}

TEST(SpeakersTest, ActiveInfoNamesThoseThatPlay)
{
    Speakers speakers;
    EXPECT_THAT(speakers.ActiveInfo(), SizeIs(155));
    EXPECT_THAT(speakers.ActiveInfo(), Each(0));

    speakers.Play({speakers.Find(3)});
    EXPECT_THAT(speakers.ActiveInfo(), SizeIs(155 + 183));
    EXPECT_EQ(Name(speakers.ActiveInfo()), "Subwoofer");

    speakers.Play({speakers.Find(1), speakers.Find(2)});
    EXPECT_EQ(Name(speakers.ActiveInfo()), "Living room");

    speakers.Play({speakers.Find(1), speakers.Find(2), speakers.Find(4)});
    EXPECT_EQ(Name(speakers.ActiveInfo()), "Living room + Kitchen");
    EXPECT_THAT(speakers.ActiveInfo(), SizeIs(155 + 3 * 183));
}

TEST(SpeakersTest, ANewNameShowsEverywhere)
{
    Speakers speakers;
    EXPECT_EQ(speakers.Rename(SpeakerMac(0x01), 0, "Door"), 0);
    speakers.Play({speakers.Find(1)});
    EXPECT_EQ(Name(speakers.ActiveInfo()), "Door");
    EXPECT_EQ(Name(speakers.Nodes()), "Door");
    const Bytes lists = speakers.Lists();
    EXPECT_EQ(Name({lists.begin() + 155, lists.end()}), "Door");
    EXPECT_EQ(speakers.ToJson()["speakers"][0]["name"], "Door");

    EXPECT_EQ(speakers.Rename(SpeakerMac(0x01), 0, ""), 0);
    EXPECT_EQ(Name(speakers.Nodes()), "");
}

TEST(SpeakersTest, KeepsTheTestOfEachSpeaker)
{
    Speakers speakers;
    EXPECT_EQ(speakers.ToJson()["speakers"][0]["test"], nullptr);
    EXPECT_EQ(speakers.StartTest(SpeakerMac(0x01), 1, 2, 3), 0);
    EXPECT_EQ(speakers.StartTest(SpeakerMac(0x02), 4, 5, 6), 0);
    EXPECT_EQ(speakers.StopTest(SpeakerMac(0x01)), 0);
    EXPECT_EQ(speakers.StopTest(SpeakerMac(0x01)), 0);
    EXPECT_EQ(speakers.ToJson()["speakers"][0]["test"], nullptr);
    EXPECT_EQ(
        speakers.ToJson()["speakers"][1]["test"], (nlohmann::json{{"parameter", 4}, {"channelType", 5}, {"extra", 6}}));
}

TEST(SpeakersTest, UnknownOnesAreRefused)
{
    Speakers speakers;
    for (const std::uint8_t last : Bytes{0xee, 0x05}) {
        EXPECT_EQ(speakers.Rename(SpeakerMac(last), 0, "x"), -1);
        EXPECT_EQ(speakers.StartTest(SpeakerMac(last), 1, 2, 3), -1);
        EXPECT_EQ(speakers.StopTest(SpeakerMac(last)), -1);
    }
    EXPECT_EQ(speakers.ToJson()["discovered"][0]["name"], "Bedroom");
}

TEST(SpeakersTest, ANodeLeavesTheWatcherOnce)
{
    Speakers speakers;
    EXPECT_EQ(speakers.StopWatching(2), 1);
    EXPECT_EQ(speakers.ToJson()["speakers"][1]["watched"], false);
    EXPECT_EQ(speakers.Nodes()[134 + 128], 0);
    EXPECT_EQ(speakers.StopWatching(2), 0);
    EXPECT_EQ(speakers.StopWatching(99), 0);
}

} // namespace
} // namespace kiv::simulator
