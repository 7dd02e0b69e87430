#include "kivctl/KivctlTest.h"

namespace kiv::ctl::list_test {
namespace {

constexpr size_t kListSize = 1086;
constexpr size_t kSpeakerSize = 183;
constexpr size_t kNodeSize = 134;
constexpr const char* kNothingUsable = "the server sent nothing usable";
constexpr const char* kNoLists = "the server is connected with no speaker; kivctl list nodes shows those that it sees";
constexpr const char* kNoNodes = "the server sees no speaker; one that is switched on near the TV appears";

class ListTest : public KivctlTest {
protected:
    // Makes the server answer these bytes, given as GVariant text.
    void Reply(const char* method, const std::string& bytes) const
    {
        SetFault(method, "reply", ("<(" + bytes + ",)>").c_str());
    }

    std::vector<std::string> Lines(const Arguments& arguments) const { return LinesOf(Run(arguments).out); }
};

TEST_F(ListTest, ActiveTellsTheGroup)
{
    Run({"start", kLeft, kRight});
    EXPECT_EQ(Lines({"list", "active"})[0], "name      Living room");
    EXPECT_EQ(Lines({"list", "active"})[1], "type      Shelf");
    EXPECT_EQ(Lines({"list", "active"})[2], "speakers  2");
    EXPECT_EQ(Calls().back(), "GetActiveNetSpkInfo(0,)");

    const Json active = Json::parse(Run({"list", "active", "--json"}).out);
    EXPECT_EQ(active.at("result"), 2);
    EXPECT_EQ(active.at("name"), "Living room");
    EXPECT_EQ(active.at("type"), "Shelf");
    ASSERT_EQ(active.at("speakers").size(), 2U);
    for (const Json& speaker : active.at("speakers")) {
        EXPECT_EQ(speaker.get<std::string>().size(), 2 * kSpeakerSize);
        EXPECT_EQ(speaker.get<std::string>().substr(0, 22), "4c6976696e6720726f6f6d");
    }
}

TEST_F(ListTest, RecordsWithoutALayoutAreBytes)
{
    Run({"start", kLeft, kRight});
    for (const Arguments& arguments : {Arguments{"list", "active"}, Arguments{"list", "active", "--hex"}}) {
        const std::vector<std::string> lines = Lines(arguments);
        // There are three lines and, for each speaker, a blank line, a title and the bytes, without repeated lines.
        ASSERT_EQ(lines.size(), 3U + (2 + 11) + (2 + 12));
        EXPECT_EQ(lines[4], "speaker 1");
        EXPECT_EQ(lines[5], "0000  4c 69 76 69 6e 67 20 72 6f 6f 6d 20 6c 65 66 74  |Living room left|");
        EXPECT_EQ(lines[6], "0010  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00  |................|");
        EXPECT_EQ(lines[7], "*");
        EXPECT_EQ(lines[8].substr(0, 4), "0040");
        EXPECT_EQ(lines[15], "00b0  00 00 00 00 00 00 00                             |.......|");
        EXPECT_EQ(lines[16], "");
        EXPECT_EQ(lines[17], "speaker 2");
    }
}

TEST_F(ListTest, NoneActiveIsAnAnswer)
{
    ExpectOutput({"list", "active"}, "name      \ntype      \nspeakers  0 (none plays now)");
    ExpectJson({"list", "active"}, {{"result", 0}, {"name", ""}, {"type", ""}, {"speakers", Json::array()}});
}

TEST_F(ListTest, ActiveTellsWhatIsAnnouncedButNotSent)
{
    Reply("GetActiveNetSpkInfo", ByteArray(155, 'x'));
    const Json active = Json::parse(Run({"list", "active", "--json"}).out);
    EXPECT_EQ(active.at("result"), 0x78787878);
    EXPECT_EQ(active.at("name"), std::string(128, 'x'));
    EXPECT_EQ(active.at("type"), std::string(23, 'x'));
    EXPECT_EQ(active.at("speakers"), Json::array());
    EXPECT_EQ(Lines({"list", "active"})[2], "speakers  2021161080 announced, 0 sent");

    const std::string withoutNumber = ByteArray(151, 'x');
    Reply("GetActiveNetSpkInfo", withoutNumber.substr(0, withoutNumber.size() - 1) + ", 255, 255, 255, 255]");
    EXPECT_EQ(Lines({"list", "active"})[2], "speakers  -1 announced, 0 sent");
}

TEST_F(ListTest, ANameCannotAddressTheTerminal)
{
    Reply("GetActiveNetSpkInfo", ByteArray(151, '\033'));
    ExpectOutput(
        {"list", "active"}, "name      " + std::string(128, '?') + "\ntype      " + std::string(23, '?') +
                                "\nspeakers  0 (none plays now)");
    EXPECT_EQ(Json::parse(Run({"list", "active", "--json"}).out).at("type"), std::string(23, '\033'));
}

TEST_F(ListTest, ActiveTellsAFailureFromAnAnswer)
{
    Reply("GetActiveNetSpkInfo", ByteArray(150, 0));
    ExpectFailure({"list", "active"}, 1, std::string("GetActiveNetSpkInfo returned 0: ") + kNothingUsable);
    Break("GetActiveNetSpkInfo");
    ExpectFailure({"list", "active"}, 1, "GetActiveNetSpkInfo returned -1: " + kBroken);
}

TEST_F(ListTest, AllAndNodesTellTheirNumber)
{
    EXPECT_EQ(Lines({"list", "all"})[0], "2 lists of 1086 bytes; --layout names their fields");
    EXPECT_EQ(Lines({"list", "all", "--array"})[0], "2 lists of 1086 bytes; --layout names their fields");
    ExpectOutput({"list", "count"}, "the server answered 2");
    ExpectJson({"list", "count"}, {{"result", 2}});
    EXPECT_EQ(Lines({"list", "nodes"})[0], "7 nodes of 134 bytes; --layout names their fields");
    ExpectCalls(
        {"GetNetSpkListInfo(0,)", "GetNetSpkListInfo(0,)", "GetNetSpkListInfoNumber()", "GetNetSpkListInfoNumber()",
         "GetNetSpkNodeList(0,)"});
}

TEST_F(ListTest, RecordsAreShownWhole)
{
    Reply("GetNetSpkListInfo", ByteArray(kListSize + 500, 'a'));
    Reply("GetNetSpkNodeList", ByteArray(kNodeSize, 0xc3));
    std::string list;
    for (size_t i = 0; i < kListSize; ++i) {
        list += "61";
    }
    ExpectJson({"list", "all"}, {{"result", 1}, {"lists", {list}}});
    ExpectJson({"list", "all", "--array"}, {{"result", 1}, {"lists", {list}}});

    const std::vector<std::string> all = Lines({"list", "all", "--hex"});
    ASSERT_EQ(all.size(), 3U + 3);
    EXPECT_EQ(all[0], "1 list of 1086 bytes; --layout names their fields");
    EXPECT_EQ(all[1], "");
    EXPECT_EQ(all[2], "list 1");
    EXPECT_EQ(all[3], "0000  61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61  |aaaaaaaaaaaaaaaa|");
    EXPECT_EQ(all[4], "*");
    EXPECT_EQ(all.back(), "0430  61 61 61 61 61 61 61 61 61 61 61 61 61 61        |aaaaaaaaaaaaaa|");

    const std::vector<std::string> nodes = Lines({"list", "nodes", "--hex"});
    ASSERT_EQ(nodes.size(), 3U + 3);
    EXPECT_EQ(nodes[2], "node 1");
    EXPECT_EQ(nodes.back(), "0080  c3 c3 c3 c3 c3 c3                                |......|");
}

TEST_F(ListTest, NoListsAreAnAnswer)
{
    Reply("GetNetSpkListInfo", "@ay []");
    ExpectOutput({"list", "all"}, std::string("0 lists: ") + kNoLists);
    ExpectJson({"list", "all", "--array"}, {{"result", 0}, {"lists", Json::array()}});
    SetFault("GetNetSpkListInfoNumber", "reply", "<(0,)>");
    ExpectOutput({"list", "count"}, std::string("the server answered 0 (") + kNoLists + ")");
}

TEST_F(ListTest, NoNodesAreAnAnswer)
{
    Reply("GetNetSpkNodeList", "@ay []");
    ExpectOutput({"list", "nodes"}, std::string("0 nodes: ") + kNoNodes);
    ExpectJson({"list", "nodes"}, {{"result", -1}, {"nodes", Json::array()}});
}

TEST_F(ListTest, BytesThatMakeNoRecordAreAFailure)
{
    Reply("GetNetSpkNodeList", "[byte 1, 2]");
    ExpectFailure({"list", "nodes"}, 1, "GetNetSpkNodeList returned 0: the server sent 2 bytes, and a node has 134");
    for (const Arguments& arguments : {Arguments{"list", "all"}, Arguments{"list", "all", "--array"}}) {
        Reply("GetNetSpkListInfo", ByteArray(kListSize - 1, 'a'));
        ExpectFailure(arguments, 1, "the server sent 1085 bytes, and a list has 1086");
    }
}

TEST_F(ListTest, TheLibrarysLineAboutAnEmptyListIsNotShown)
{
    Reply("GetNetSpkNodeList", "@ay []");
    Reply("GetNetSpkListInfo", "@ay []");
    for (const char* command : {"nodes", "all"}) {
        EXPECT_EQ(Run({"list", command}, {{"KIV_LOG_LEVEL", ""}}).err, "");
    }
}

TEST_F(ListTest, AnAnswerOfAnotherTypeIsAFailure)
{
    for (const auto& [command, method] :
         {std::pair("all", "GetNetSpkListInfo"), std::pair("nodes", "GetNetSpkNodeList"),
          std::pair("active", "GetActiveNetSpkInfo")}) {
        SetFault(method, "reply", "<('text',)>");
        ExpectFailure({"list", command}, 1, "the answer must be of the D-Bus type ay, got s");
    }
    SetFault("GetNetSpkListInfoNumber", "reply", "<('text',)>");
    ExpectFailure(
        {"list", "count"}, 1, "GetNetSpkListInfoNumber returned 0: the answer must be of the D-Bus type (i), got (s)");
}

TEST_F(ListTest, FailuresAreNamed)
{
    for (const char* method : {"GetNetSpkListInfo", "GetNetSpkListInfoNumber", "GetNetSpkNodeList"}) {
        Break(method);
    }
    ExpectFailure({"list", "all"}, 1, "GetNetSpkListInfo returned -1: " + kBroken);
    ExpectFailure(
        {"list", "all", "--array"}, 1,
        "getNetSpkListInfo returned -1: the server answered GetNetSpkListInfo with the error org.example.Broken");
    ExpectFailure({"list", "count"}, 1, "GetNetSpkListInfoNumber returned -1: " + kBroken);
    ExpectFailure({"list", "nodes"}, 1, "GetNetSpkNodeList returned -1: " + kBroken);
}

TEST_F(ListTest, BadArgumentsSendNothing)
{
    ExpectRefused({
        {{"list", "active", "now"}, "now"},
        {{"list", "count", "--hex"}, "--hex"},
    });
}

} // namespace
} // namespace kiv::ctl::list_test
