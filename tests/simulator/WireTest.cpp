#include "simulator/Wire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace kiv::simulator::wire_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(WireTest, IntegersAreLittleEndian)
{
    const Bytes bytes = Writer().Int32(0x01020384).Int32(-2).Written();
    EXPECT_THAT(bytes, ElementsAre(0x84, 3, 2, 1, 0xfe, 0xff, 0xff, 0xff));
    Reader reader(bytes);
    EXPECT_EQ(reader.Int32(), 0x01020384);
    EXPECT_EQ(reader.Int32(), -2);
}

TEST(WireTest, TextIsPaddedAndEndsWithNul)
{
    EXPECT_THAT(Writer().Text("ab", 4).Written(), ElementsAre('a', 'b', 0, 0));
    EXPECT_THAT(Writer().Text("", 2).Written(), ElementsAre(0, 0));
    EXPECT_THAT(Writer().Text("abcd", 4).Written(), ElementsAre('a', 'b', 'c', 0));
}

TEST(WireTest, TextIsCutBetweenCharacters)
{
    EXPECT_THAT(Writer().Text("a\u00fcb", 3).Written(), ElementsAre('a', 0, 0));
    EXPECT_THAT(Writer().Text("a\u00fcb", 4).Written(), ElementsAre('a', 0xc3, 0xbc, 0));
    EXPECT_THAT(Writer().Text("\u20ac", 3).Written(), ElementsAre(0, 0, 0));
}

TEST(WireTest, SizeFillsUpOrCuts)
{
    EXPECT_THAT(Writer().Append(Bytes{1, 2}).ToSize(3).Written(), ElementsAre(1, 2, 0));
    EXPECT_THAT(Writer().Append(Bytes{1, 2}).ToSize(1).Written(), ElementsAre(1));
}

TEST(WireTest, TakesFieldsInOrder)
{
    const Bytes bytes = {192, 168, 0, 1, 9, 2, 3, 4, 5, 6, 7, 8};
    Reader reader(bytes);
    EXPECT_EQ(Text(reader.Take<Ip>()), "192.168.0.1");
    reader.Skip(1);
    EXPECT_EQ(Text(reader.Take<Mac>()), "02:03:04:05:06:07");
    EXPECT_THAT(reader.Rest(), ElementsAre(8));
    EXPECT_THAT(reader.Rest(), IsEmpty());
}

TEST(WireTest, NothingIsTakenBeyondTheEnd)
{
    const Bytes bytes(5);
    EXPECT_THROW(Reader(bytes).Take<Mac>(), std::out_of_range);
    Reader reader(bytes);
    reader.Skip(2);
    EXPECT_THROW(reader.Int32(), std::out_of_range);
    reader.Skip(5);
    EXPECT_THROW(reader.Rest(), std::out_of_range);
}

TEST(WireTest, ReadsWhatPeopleWrite)
{
    EXPECT_EQ(ParseMac("02:4b:49:56:00:A4"), (Mac{0x02, 0x4b, 0x49, 0x56, 0x00, 0xa4}));
    EXPECT_EQ(ParseIp("192.168.0.255"), (Ip{192, 168, 0, 255}));
    EXPECT_EQ(ParseHex(" 01 fF20 "), (Bytes{1, 0xff, 0x20}));
    EXPECT_EQ(ParseHex(""), Bytes());
}

TEST(WireTest, RefusesWhatIsNoAddressOrByte)
{
    for (const std::string text :
         {"", "02:4b:49:56:00", "02:4b:49:56:00:01:", "02:4b:49:56:00:01:02", "02-4b-49-56-00-01", "02:4b:49:56:00:1ff",
          "02:4b:49:56:00:001", "02:4b:49:56:00:-1", "02:4b:49:56:00:0g"}) {
        EXPECT_EQ(ParseMac(text), std::nullopt) << text;
    }
    using namespace std::string_literals;
    for (const std::string& text :
         {""s, "192.168.0"s, "192.168.0.256"s, "192.168.0.1."s, "192.168.0.a"s, "192.168.0.01"s, "192.168.0.1\0"s}) {
        EXPECT_EQ(ParseIp(text), std::nullopt) << text;
    }
    for (const std::string text : {"0", "0x01", "01 2", "0 1", "gg", "01,02"}) {
        EXPECT_EQ(ParseHex(text), std::nullopt) << text;
    }
}

} // namespace
} // namespace kiv::simulator::wire_test
