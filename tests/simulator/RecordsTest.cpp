#include "simulator/Records.h"

#include "simulator/SimulatorTest.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <map>

namespace kiv::simulator::records_test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;

Speaker Example()
{
    return {
        .node = 3,
        .group = 2,
        .name = "Door",
        .type = "Shelf",
        .mac = SpeakerMac(0xa4),
        .ip = {192, 168, 0, 9},
        .volume = 20,
        .connection = Connection::kDirect,
        .channel = -1,
        .active = true,
        .watched = false};
}

// Returns bytes of a record. Expects that the record has all of them.
Bytes Part(const Bytes& record, std::size_t at, std::size_t size)
{
    EXPECT_GE(record.size(), at + size);
    Reader reader(record);
    reader.Skip(at);
    Bytes part = reader.Rest();
    part.resize(size);
    return part;
}

int Int(const Bytes& record, std::size_t at)
{
    Reader reader(record);
    reader.Skip(at);
    return reader.Int32();
}

std::string String(const Bytes& record, std::size_t at, std::size_t width)
{
    const Bytes field = Part(record, at, width);
    const auto end = std::ranges::find(field, 0);
    EXPECT_NE(end, field.end());
    EXPECT_TRUE(std::all_of(end, field.end(), [](std::uint8_t byte) { return byte == 0; }));
    return {field.begin(), end};
}

void ExpectTheExample(const Bytes& record)
{
    EXPECT_EQ(String(record, 0, 64), "Door");
    EXPECT_EQ(String(record, 64, 8), "KIVA4");
    EXPECT_EQ(String(record, 72, 24), "Shelf");
    EXPECT_THAT(Part(record, 96, 8), ElementsAre(0x02, 0x4b, 0x49, 0x56, 0x00, 0xa4, 0, 0));
    EXPECT_THAT(Part(record, 104, 4), ElementsAre(192, 168, 0, 9));
    EXPECT_EQ(Int(record, 108), 3);
    EXPECT_EQ(Int(record, 112), 2);
    EXPECT_EQ(Int(record, 116), 20);
    EXPECT_EQ(Int(record, 120), -1);
    EXPECT_EQ(Int(record, 124), 2);
}

TEST(RecordsTest, Node)
{
    const Bytes node = WriteNode(Example());
    EXPECT_THAT(node, SizeIs(134));
    ExpectTheExample(node);
    EXPECT_EQ(Int(node, 128), 0);
    EXPECT_THAT(Part(node, 132, 2), Each(0));
}

TEST(RecordsTest, ActiveGroup)
{
    Speaker other = Example();
    other.type = "Subwoofer";
    const Bytes group = WriteActiveGroup("Hall", {other, Example()});
    EXPECT_THAT(group, SizeIs(155 + 2 * 183));
    EXPECT_EQ(String(group, 0, 128), "Hall");
    EXPECT_EQ(String(group, 128, 23), "Mixed");
    EXPECT_EQ(Int(group, 151), 2);
    EXPECT_EQ(String(group, 155 + 72, 24), "Subwoofer");

    const Bytes second = Part(group, 155 + 183, 183);
    ExpectTheExample(second);
    EXPECT_EQ(Int(second, 128), 1);
    EXPECT_THAT(Part(second, 132, 51), Each(0));
}

TEST(RecordsTest, ActiveGroupOfOneType)
{
    EXPECT_EQ(String(WriteActiveGroup("Hall", {Example(), Example()}), 128, 23), "Shelf");
}

TEST(RecordsTest, ActiveGroupOfNobody)
{
    const Bytes group = WriteActiveGroup("", {});
    EXPECT_THAT(group, SizeIs(155));
    EXPECT_THAT(group, Each(0));
}

TEST(RecordsTest, List)
{
    Speaker silent = Example();
    silent.active = false;
    const Bytes list = WriteList({7, "Hall", {silent, Example()}});
    EXPECT_THAT(list, SizeIs(1086));
    EXPECT_EQ(String(list, 0, 128), "Hall");
    EXPECT_EQ(String(list, 128, 23), "Shelf");
    EXPECT_EQ(Int(list, 151), 2);
    EXPECT_EQ(Int(list, 155 + 128), 0);
    ExpectTheExample(Part(list, 155 + 183, 183));
    EXPECT_EQ(Int(list, 155 + 183 + 128), 1);
    EXPECT_THAT(Part(list, 155 + 2 * 183, 3 * 183), Each(0));
    EXPECT_EQ(Int(list, 1070), 7);
    EXPECT_EQ(Int(list, 1074), 1);
    EXPECT_THAT(Part(list, 1078, 8), Each(0));
}

TEST(RecordsTest, Volume)
{
    EXPECT_THAT(WriteVolume(Example()), ElementsAre(0x02, 0x4b, 0x49, 0x56, 0, 0xa4, 192, 168, 0, 9, 20, 0, 0, 0));
}

using Values = std::map<std::string, std::string>;

// Returns the fields of a record by the layout file, without the records within.
Values ByLayout(const std::string& name, const Bytes& record)
{
    const auto layout = nlohmann::json::parse(std::ifstream(KIV_LAYOUT_FILE)).at("records").at(name);
    EXPECT_EQ(layout.at("size"), record.size());
    Values values;
    for (const auto& field : layout.at("fields")) {
        const std::size_t at = field.at("offset");
        const std::string type = field.at("type");
        if (type == "text") {
            values[field.at("name")] = String(record, at, field.at("length"));
        } else if (type == "mac") {
            values[field.at("name")] = Text(Reader(Part(record, at, 6)).Take<Mac>());
        } else if (type == "ipv4") {
            values[field.at("name")] = Text(Reader(Part(record, at, 4)).Take<Ip>());
        } else if (type == "i32") {
            values[field.at("name")] = std::to_string(Int(record, at));
        }
    }
    return values;
}

TEST(RecordsTest, TheLayoutFileSaysWhatIsWritten)
{
    Values speaker = {{"name", "Door"},      {"label", "KIVA4"},  {"type", "Shelf"}, {"mac", "02:4b:49:56:00:a4"},
                      {"ip", "192.168.0.9"}, {"node", "3"},       {"group", "2"},    {"volume", "20"},
                      {"channel", "-1"},     {"connection", "2"}, {"watched", "0"}};
    EXPECT_EQ(ByLayout("node", WriteNode(Example())), speaker);
    speaker.erase("watched");
    speaker["playing"] = "1";
    EXPECT_EQ(ByLayout("speaker", Part(WriteActiveGroup("Hall", {Example()}), 155, 183)), speaker);
    EXPECT_EQ(
        ByLayout("list", WriteList({7, "Hall", {Example(), Example()}})),
        (Values{{"name", "Hall"}, {"type", "Shelf"}, {"connected", "2"}, {"group", "7"}, {"playing", "2"}}));
    EXPECT_EQ(
        ByLayout("volume", WriteVolume(Example())),
        (Values{{"mac", "02:4b:49:56:00:a4"}, {"ip", "192.168.0.9"}, {"volume", "20"}}));
}

TEST(RecordsTest, LongTextsAreCut)
{
    Speaker speaker = Example();
    speaker.name = std::string(70, 'n');
    speaker.type = std::string(30, 't');
    const Bytes group = WriteActiveGroup(std::string(200, 'g'), {speaker});
    EXPECT_EQ(String(group, 0, 128), std::string(127, 'g'));
    EXPECT_EQ(String(group, 128, 23), std::string(22, 't'));
    EXPECT_EQ(String(group, 155, 64), std::string(63, 'n'));
    EXPECT_EQ(String(group, 155 + 72, 24), std::string(23, 't'));
}

TEST(RecordsTest, Configs)
{
    const auto configs = ReadConfigs(Joined({StartRecord(-8, 0x01), StartRecord(9, 0xa4)}));
    ASSERT_TRUE(configs);
    ASSERT_THAT(*configs, SizeIs(2));
    EXPECT_EQ(configs->front().value, -8);
    EXPECT_EQ(configs->back().value, 9);
    EXPECT_EQ(configs->back().mac, SpeakerMac(0xa4));
    EXPECT_THAT(ReadConfigs({}), ::testing::Optional(SizeIs(0)));
    for (const std::size_t size : {1U, 85U, 87U, 171U}) {
        EXPECT_FALSE(ReadConfigs(Bytes(size))) << size;
    }
}

TEST(RecordsTest, MacList)
{
    const Bytes two = Writer().Int32(2).Append(SpeakerMac(5)).Append(SpeakerMac(6)).Written();
    EXPECT_THAT(ReadMacList(two), ::testing::Optional(ElementsAre(SpeakerMac(5), SpeakerMac(6))));

    const Bytes noNumber = {1, 0, 0};
    const Bytes none = Writer().Int32(0).Written();
    const Bytes negative = Writer().Int32(-1).Append(SpeakerMac(5)).Written();
    const Bytes tooShort = Writer().Int32(2).Append(SpeakerMac(5)).Written();
    const Bytes tooLong = Writer().Int32(1).Append(SpeakerMac(5)).ToSize(11).Written();
    // In 32 bits, six times this number is 2.
    const Bytes wrapping = Writer().Int32(0x2aaaaaab).ToSize(6).Written();
    for (const Bytes& bytes : {Bytes(), noNumber, none, negative, tooShort, tooLong, wrapping}) {
        EXPECT_FALSE(ReadMacList(bytes)) << ::testing::PrintToString(bytes);
    }
}

TEST(RecordsTest, MobileMessage)
{
    const Bytes message = Writer().Int32(8).Append(SpeakerMac(5)).Append(Bytes{1, 2}).Written();
    EXPECT_EQ(ReadMobileMessage(message), SpeakerMac(5));

    const Bytes empty = Writer().Int32(0).Written();
    const Bytes noMac = Writer().Int32(5).ToSize(9).Written();
    const Bytes tooShort = Writer().Int32(7).Append(SpeakerMac(5)).Written();
    const Bytes tooLong = Writer().Int32(6).Append(SpeakerMac(5)).ToSize(11).Written();
    const Bytes negative = Writer().Int32(-1).Append(SpeakerMac(5)).Written();
    for (const Bytes& bytes : {Bytes(), empty, noMac, tooShort, tooLong, negative}) {
        EXPECT_FALSE(ReadMobileMessage(bytes)) << ::testing::PrintToString(bytes);
    }
}

TEST(RecordsTest, SoundbarPayloads)
{
    const Bytes address = Writer().Append(SpeakerMac(0xb0)).Int32(7).Written();

    const auto setting = ReadSoundbarSetting(Joined({address, {1, 2, 3}}));
    ASSERT_TRUE(setting);
    EXPECT_EQ(setting->mac, SpeakerMac(0xb0));
    EXPECT_THAT(setting->data, ElementsAre(1, 2, 3));
    EXPECT_THAT(ReadSoundbarSetting(address)->data, SizeIs(0));
    EXPECT_FALSE(ReadSoundbarSetting(Bytes(9)));

    EXPECT_EQ(ReadMac({0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0}), SpeakerMac(0xb0));
    EXPECT_FALSE(ReadMac(Bytes(5)));
    EXPECT_FALSE(ReadMac(Bytes(7)));
}

} // namespace
} // namespace kiv::simulator::records_test
