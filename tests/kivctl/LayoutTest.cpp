#include "kivctl/KivctlTest.h"

#include <fstream>
#include <map>

namespace kiv::ctl::layout_test {
namespace {

constexpr size_t kNodeSize = 134;

class LayoutTest : public KivctlTest {
protected:
    // Makes the server report one node. Its record begins with these bytes, given as GVariant text.
    void ReplyNode(const std::string& bytes, size_t count) const
    {
        std::string reply = "<([byte " + bytes;
        for (size_t i = count; i < kNodeSize; ++i) {
            reply += ", 0";
        }
        SetFault("GetNetSpkNodeList", "reply", (reply + "],)>").c_str());
    }

    // Returns the node, decoded by these fields.
    Json Node(const std::string& fields) const
    {
        const std::string path = WriteFile(R"({"records": {"node": {"size": 134, "fields": [)" + fields + "]}}}");
        const Ended ended = Run({"--json", "list", "nodes", "--layout", path});
        EXPECT_EQ(ended.exitCode, 0) << ended.out;
        return Json::parse(ended.out).at("decoded").at(0);
    }

    Json Decoded(Arguments arguments) const
    {
        arguments.insert(arguments.end(), {"--json", "--layout", KIV_LAYOUT_FILE});
        return Json::parse(Run(arguments).out).at("decoded");
    }
};

// Expects that a record describes a speaker as the simulator does.
void ExpectSame(const Json& record, const Json& speaker)
{
    for (const char* name : {"name", "type", "mac", "ip", "node", "group", "volume", "channel"}) {
        EXPECT_EQ(record.at(name), speaker.at(name)) << name;
    }
    EXPECT_EQ(record.at("label"), speaker.at("id"));
    const std::map<std::string, int> connections = {{"none", 0}, {"network", 1}, {"direct", 2}};
    EXPECT_EQ(record.at("connection"), connections.at(speaker.at("connection")));
}

TEST_F(LayoutTest, TheSimulatorsOwnDescribesItsHome)
{
    Run({"start", kLeft, kRight});
    const Json state = State();
    const Json nodes = Decoded({"list", "nodes"});
    ASSERT_EQ(nodes.size(), 7U);
    for (size_t i = 0; i < state.at("speakers").size(); ++i) {
        ExpectSame(nodes.at(i), state.at("speakers").at(i));
        EXPECT_EQ(nodes.at(i).at("watched"), 1);
    }
    const Json active = Decoded({"list", "active"});
    ASSERT_EQ(active.size(), 2U);
    ExpectSame(active.at(1), state.at("speakers").at(1));
    EXPECT_EQ(active.at(1).at("playing"), 1);

    const Json lists = Decoded({"list", "all"});
    ASSERT_EQ(lists.size(), 2U);
    EXPECT_EQ(lists.at(0).at("name"), "Living room");
    EXPECT_EQ(lists.at(0).at("type"), "Mixed");
    EXPECT_EQ(lists.at(0).at("group"), 1);
    EXPECT_EQ(lists.at(0).at("connected"), 3);
    EXPECT_EQ(lists.at(0).at("playing"), 2);
    ASSERT_EQ(lists.at(0).at("speakers").size(), 3U);
    ExpectSame(lists.at(0).at("speakers").at(2), state.at("speakers").at(2));
    EXPECT_EQ(lists.at(1).at("speakers").size(), 1U);
    EXPECT_EQ(Decoded({"list", "all", "--array"}), lists);
}

TEST_F(LayoutTest, RecordsAreTables)
{
    const std::string speaker = R"("size": 183, "fields": [
        {"name": "name", "offset": 0, "type": "text", "length": 64}, {"name": "volume", "offset": 116, "type": "i32"}])";
    const std::string path = WriteFile(R"({"records": {
        "speaker": {)" + speaker + R"(},
        "node": {"size": 134, "fields": [{"name": "name", "offset": 0, "type": "text", "length": 64},
                                         {"name": "mac", "offset": 96, "type": "mac"}]},
        "list": {"size": 1086, "fields": [
            {"name": "name", "offset": 0, "type": "text", "length": 128},
            {"name": "number", "offset": 151, "type": "i32"},
            {"name": "speakers", "offset": 155, "type": "records", "record": "speaker", "count": 5, "filled": "number"}]}
        }})");
    ExpectOutput(
        {"list", "nodes", "--layout", path}, "7 nodes\n"
                                             "\n"
                                             "name               mac\n"
                                             "Living room left   02:4b:49:56:00:01\n"
                                             "Living room right  02:4b:49:56:00:02\n"
                                             "Subwoofer          02:4b:49:56:00:03\n"
                                             "Kitchen            02:4b:49:56:00:a4\n"
                                             "Bedroom            02:4b:49:56:00:05\n"
                                             "Terrace left       02:4b:49:56:00:06\n"
                                             "Terrace right      02:4b:49:56:00:07");
    ExpectOutput(
        {"list", "all", "--layout", path}, "2 lists\n"
                                           "\n"
                                           "name    Living room\n"
                                           "number  3\n"
                                           "speakers:\n"
                                           "  name               volume\n"
                                           "  Living room left   20\n"
                                           "  Living room right  20\n"
                                           "  Subwoofer          15\n"
                                           "\n"
                                           "name    Kitchen\n"
                                           "number  1\n"
                                           "speakers:\n"
                                           "  name     volume\n"
                                           "  Kitchen  10");
    Run({"start", kLeft});
    ExpectOutput(
        {"list", "active", "--layout", path}, "name      Living room left\n"
                                              "type      Shelf\n"
                                              "speakers  1\n"
                                              "\n"
                                              "name              volume\n"
                                              "Living room left  20");
    const std::string hex = Run({"list", "nodes", "--hex", "--layout", path}).out;
    EXPECT_THAT(hex, HasSubstr("Terrace right      02:4b:49:56:00:07\n\nnode 1\n0000  4c 69 76 69"));
}

TEST_F(LayoutTest, EachTypeHasItsValue)
{
    ReplyNode("0xff, 0xfe, 0xff, 0xff, 0xff, 65, 0xc3, 27, 0, 66", 10);
    EXPECT_EQ(
        Node(R"({"name": "u8", "offset": 0, "type": "u8"}, {"name": "i8", "offset": 0, "type": "i8"},
                {"name": "u16", "offset": 1, "type": "u16"}, {"name": "i16", "offset": 1, "type": "i16"},
                {"name": "u32", "offset": 1, "type": "u32"}, {"name": "i32", "offset": 1, "type": "i32"},
                {"name": "mac", "offset": 3, "type": "mac"}, {"name": "ip", "offset": 0, "type": "ipv4"},
                {"name": "bytes", "offset": 4, "type": "bytes", "length": 3},
                {"name": "text", "offset": 5, "type": "text", "length": 5},
                {"name": "cut", "offset": 5, "type": "text", "length": 1},
                {"name": "end", "offset": 133, "type": "u8"})"),
        Json(
            {{"u8", 255},
             {"i8", -1},
             {"u16", 65534},
             {"i16", -2},
             {"u32", 4294967294},
             {"i32", -2},
             {"mac", "ff:ff:41:c3:1b:00"},
             {"ip", "255.254.255.255"},
             {"bytes", "ff41c3"},
             {"text", "A\xef\xbf\xbd\x1b"},
             {"cut", "A"},
             {"end", 0}}));
    EXPECT_THAT(Run({"list", "nodes", "--layout", bus_.Directory() / "file"}).out, HasSubstr("A\xef\xbf\xbd?"));
}

TEST_F(LayoutTest, OnlyFilledRecordsAreShown)
{
    const std::string inner = R"("inner": {"size": 2, "fields": [{"name": "x", "offset": 1, "type": "u8"}]})";
    const std::string path = WriteFile(R"({"records": {)" + inner + R"(, "node": {"size": 134, "fields": [
        {"name": "count", "offset": 0, "type": "i8"},
        {"name": "some", "offset": 2, "type": "records", "record": "inner", "count": 3, "filled": "count"},
        {"name": "all", "offset": 2, "type": "records", "record": "inner", "count": 2}]}}})");
    const Json one = {{"x", 11}};
    const Json two = {{"x", 12}};
    const Json three = {{"x", 13}};
    for (const auto& [count, some] : std::map<std::string, Json>{
             {"0", Json::array()},
             {"1", Json::array({one})},
             {"3", {one, two, three}},
             {"4", {one, two, three}},
             {"255", Json::array()}}) {
        ReplyNode(count + ", 0, 1, 11, 2, 12, 3, 13, 4", 9);
        const Json node = Json::parse(Run({"--json", "list", "nodes", "--layout", path}).out).at("decoded").at(0);
        EXPECT_EQ(node.at("some"), some) << count;
        EXPECT_EQ(node.at("all"), Json({one, two})) << count;
    }
}

TEST_F(LayoutTest, TheEnvironmentNamesTheFileUnlessTheOptionDoes)
{
    const std::string path = WriteFile(R"({"records": {}})");
    const Environment named = {{"KIV_LAYOUT", KIV_LAYOUT_FILE}};
    EXPECT_TRUE(Json::parse(Run({"--json", "list", "nodes"}, named).out).contains("decoded"));
    EXPECT_FALSE(Json::parse(Run({"--json", "list", "nodes", "--layout", path}, named).out).contains("decoded"));
    EXPECT_FALSE(Json::parse(Run({"--json", "list", "nodes"}, {{"KIV_LAYOUT", ""}}).out).contains("decoded"));
    EXPECT_THAT(
        Run({"list", "nodes"}, {{"KIV_LAYOUT", "/nowhere"}}),
        Ends(2, _, "kivctl: KIV_LAYOUT: /nowhere: No such file or directory\n"));
}

TEST_F(LayoutTest, ABadFileSendsNothing)
{
    const std::string field = R"({"name": "a", "offset": 0, "type": "u8"})";
    const auto record = [](const std::string& fields) {
        return R"({"records": {"r": {"size": 8, "fields": [)" + fields + "]}}}";
    };
    const struct {
        std::string text;
        const char* reason;
    } cases[] = {
        {"", "parse error at line 1, column 1"},
        {"[]", "must be an object, got []"},
        {"{}", "\"records\" is missing"},
        {R"({"records": {}, "more": 1})", "unknown key \"more\"; known are description, events, records"},
        {R"({"records": {}, "description": 1})", "description: must be a text that is not empty, got 1"},
        {R"({"records": {"r": 1}})", "records.r: must be an object, got 1"},
        {R"({"records": {"r": {"fields": []}}})", "records.r: \"size\" is missing"},
        {R"({"records": {"r": {"size": 0, "fields": []}}})",
         "records.r.size: must be an integer from 1 to 65536, got 0"},
        {R"({"records": {"r": {"size": 65537, "fields": []}}})", "got 65537"},
        {R"({"records": {"node": {"size": 133, "fields": []}}})",
         "records.node.size: must be 134 as in the library, got 133"},
        {R"({"records": {"r": {"size": 1}}})", "records.r: \"fields\" is missing"},
        {R"({"records": {"r": {"size": 1, "fields": {}}}})", "records.r.fields: must be an array, got {}"},
        {record("5"), "records.r.fields[0]: must be an object, got 5"},
        {record(field + ", " + field), "records.r.fields[1]: the record has a field \"a\" already"},
        {record(R"({"offset": 0, "type": "u8"})"), "records.r.fields[0]: \"name\" is missing"},
        {record(R"({"name": "", "offset": 0, "type": "u8"})"),
         "records.r.fields[0].name: must be a text that is not empty"},
        {record(R"({"name": "a", "offset": -1, "type": "u8"})"), "offset: must be an integer from 0 to 65536, got -1"},
        {record(R"({"name": "a", "offset": 1.0, "type": "u8"})"), "got 1.0"},
        {record(R"({"name": "a", "offset": 0, "type": "u7"})"), "must be one of text, bytes, records, ipv4, mac, i16"},
        {record(R"({"name": "a", "offset": 0, "type": "text"})"), "\"length\" is missing"},
        {record(R"({"name": "a", "offset": 0, "type": "u8", "length": 1})"), "unknown key \"length\""},
        {record(R"({"name": "a", "offset": 5, "type": "u32"})"),
         "must lie within the 8 bytes of its record, but begins at 5 and has 4"},
        {record(R"({"name": "a", "offset": 0, "type": "text", "length": 9})"), "but begins at 0 and has 9"},
        {record(R"({"name": "a", "offset": 0, "type": "records", "record": "r", "count": 1})"),
         "the record contains itself"},
        {record(R"({"name": "a", "offset": 0, "type": "records", "record": "r", "count": 65536})"),
         "begins at 0 and has 524288"},
        {record(R"({"name": "a", "offset": 0, "type": "records", "record": "s", "count": 1})"),
         "must be the name of a record in this file, got \"s\""},
        {R"({"records": {"s": {"size": 1, "fields": []}, "r": {"size": 8, "fields": [
            {"name": "a", "offset": 0, "type": "records", "record": "s", "count": 1, "filled": "n"}]}}})",
         "must be the name of an integer field of this record, got \"n\""},
        {R"({"records": {}, "events": {"0x02020040": {"record": "r"}}})",
         "events.0x02020040.record: must be the name of a record"},
        {R"({"records": {"r": {"size": 1, "fields": []}}, "events": {"5": {"record": "r"}}})",
         "must be 0x and eight hex digits, got \"5\""},
        {R"({"records": {"r": {"size": 1, "fields": []}}, "events": {"0x0000000g": {"record": "r"}}})",
         "got \"0x0000000g\""},
        {R"({"records": {"r": {"size": 1, "fields": []}}, "events": {"0x00000001": {"name": "volume", "record": "r"}}})",
         "must have a MAC address \"mac\" and an integer \"volume\""},
    };
    for (const auto& [text, reason] : cases) {
        SCOPED_TRACE(text);
        ExpectFailure({"list", "nodes", "--layout", WriteFile(text)}, 2, reason);
    }
    ExpectFailure({"list", "all", "--layout", "/dev/zero"}, 2, "/dev/zero: must be a file of at most 1 MiB, got more");
    ExpectFailure({"list", "active", "--layout", bus_.Directory()}, 2, "Is a directory");
    ExpectCalls({});
}

TEST_F(LayoutTest, AFileMayHaveOneMiB)
{
    const std::string layout = R"({"records": {}})";
    const std::string path = WriteFile(layout + std::string(1024UL * 1024 - layout.size(), ' '));
    EXPECT_EQ(Run({"list", "nodes", "--layout", path}).exitCode, 0);
    std::ofstream(path, std::ios::app) << ' ';
    ExpectFailure({"list", "nodes", "--layout", path}, 2, path + ": must be a file of at most 1 MiB, got more");
}

} // namespace
} // namespace kiv::ctl::layout_test
