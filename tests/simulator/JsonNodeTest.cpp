#include "simulator/JsonNode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace kiv::simulator::json_node_test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string Complaint(const std::function<void()>& action)
{
    try {
        action();
    } catch (const FileError& error) {
        return error.what();
    }
    return "none";
}

std::string ParseComplaint(const std::string& text, int firstLine = 1)
{
    return Complaint([&] { JsonNode::Parse("file", text, firstLine); });
}

// Collects the values in the text, each with its place.
void Collect(const JsonNode& node, std::vector<std::string>& places)
{
    places.push_back(Complaint([&node] { node.Fail("here"); }));
    const auto tryEach = [&](const auto& visit) { Complaint(visit); };
    tryEach([&] {
        for (const JsonNode& item : node.Items()) {
            Collect(item, places);
        }
    });
    tryEach([&] {
        for (const auto& [name, member] : node.Members()) {
            Collect(member, places);
        }
    });
}

TEST(JsonNodeTest, KnowsThePlaceOfEachValue)
{
    const std::string text = R"({
  "a": [
    1,
    "two",
    {
      "b/c~": null }, 3
    ,[
    true]],
  "d":
    5
})";
    std::vector<std::string> places;
    Collect(JsonNode::Parse("file", text), places);
    EXPECT_THAT(
        places, testing::ElementsAre(
                    "file:1: here", "file:2: /a: here", "file:3: /a/0: here", "file:4: /a/1: here",
                    "file:5: /a/2: here", "file:6: /a/2/b~1c~0: here", "file:6: /a/3: here", "file:7: /a/4: here",
                    "file:8: /a/4/0: here", "file:9: /d: here"));
}

TEST(JsonNodeTest, TellsWhereTheSyntaxEnds)
{
    EXPECT_THAT(ParseComplaint("{\n\"a\": 1,\n}"), StartsWith("file:3:1: syntax error while parsing"));
    EXPECT_THAT(ParseComplaint(""), StartsWith("file:1:1: "));
    EXPECT_THAT(ParseComplaint("[1] 2"), StartsWith("file:1:5: "));
    EXPECT_THAT(ParseComplaint("\"\xff\""), StartsWith("file:1:2: "));
    EXPECT_THAT(ParseComplaint("{\"a\": }", 7), StartsWith("file:7:7: syntax error"));
    EXPECT_THAT(ParseComplaint("1e999"), StartsWith("file:1: number overflow"));
}

TEST(JsonNodeTest, SaysThatKeysAndTextsNeedDoubleQuotes)
{
    const std::string hint = "; keys and texts must be in double quotes, such as '{\"delay\": 500}'";
    for (const std::string text : {"{delay: 2}", "{'delay': 2}", "{\"error\": 'org.example.Bad'}", "[yes]"}) {
        EXPECT_THAT(ParseComplaint(text), EndsWith(hint)) << text;
    }
    EXPECT_THAT(ParseComplaint("{\"a\": 1"), Not(HasSubstr("quotes,")));
}

TEST(JsonNodeTest, RefusesAKeyThatIsGivenTwice)
{
    EXPECT_EQ(ParseComplaint("[{\n\"a\": 1,\n\"b\": {\"a\": 1},\n\"a\": 2}]"), "file:4: /0/a is given twice");
}

TEST(JsonNodeTest, RefusesOtherTypes)
{
    const JsonNode number = JsonNode::Parse("file", "7");
    EXPECT_EQ(number.Integer(7, 7), 7);
    EXPECT_EQ(Complaint([&] { number.Integer(8, 9); }), "file:1: must be a whole number from 8 to 9, got 7");
    EXPECT_EQ(Complaint([&] { number.Integer(5, 6); }), "file:1: must be a whole number from 5 to 6, got 7");
    EXPECT_EQ(Complaint([&] { number.Text(); }), "file:1: must be a text, got 7");
    EXPECT_EQ(Complaint([&] { number.Flag(); }), "file:1: must be true or false, got 7");
    EXPECT_EQ(Complaint([&] { number.Items(); }), "file:1: must be a list, got 7");
    EXPECT_EQ(Complaint([&] { number.Members(); }), "file:1: must be an object, got 7");
    for (const std::string text :
         {"1.0", "1e2", "18446744073709551615", "99999999999999999999", "true", "\"1\"", "null"}) {
        EXPECT_NE(Complaint([&] { JsonNode::Parse("file", text).Integer(0, 100); }), "none") << text;
    }
}

} // namespace
} // namespace kiv::simulator::json_node_test
