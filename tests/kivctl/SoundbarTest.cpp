#include "kivctl/KivctlTest.h"

#include <filesystem>

namespace kiv::ctl::soundbar_test {
namespace {

const std::string kSoundbar = "02:4b:49:56:00:b0";
const std::string kSoundbarBytes = "0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0";
const std::string kIpBytes = "0xc0, 0xa8, 0x00, 0x14";
constexpr const char* kNoSoundbar = "the server sent nothing usable, which usually means that it has no such soundbar";

class SoundbarTest : public KivctlTest {
protected:
    // Makes the server answer this number of bytes of one value.
    void Reply(const char* method, size_t size, int value) const
    {
        SetFault(method, "reply", ("<(" + ByteArray(size, value) + ",)>").c_str());
    }
};

TEST_F(SoundbarTest, ItsSoundModeIsSetAndShown)
{
    ExpectOutput({"soundbar", "mode", "set", kSoundbar, "01 02ff0400", "--ip", "192.168.0.20"}, "sent");
    ExpectOutput(
        {"soundbar", "mode", "get"}, "mac     02:4b:49:56:00:b0\n"
                                     "ip      192.168.0.20\n"
                                     "length  5\n"
                                     "data    01 02 ff 04 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    ExpectJson(
        {"soundbar", "mode", "get"}, {{"result", 5},
                                      {"mac", kSoundbar},
                                      {"ip", "192.168.0.20"},
                                      {"data", "0102ff0400000000000000000000000000000000"}});
    ExpectCalls(
        {"SetSoundbarSoundMode([" + kSoundbarBytes + ", " + kIpBytes + ", 0x01, 0x02, 0xff, 0x04, 0x00],)",
         "GetSoundbarSoundMode(0,)", "GetSoundbarSoundMode(0,)"});
}

TEST_F(SoundbarTest, SoundModeDataComeFromAFileAndMayBeNone)
{
    ExpectJson(
        {"soundbar", "mode", "set", kSoundbar, "--file", WriteFile("\x02\n"), "--ip", "192.168.0.20"},
        {{"sent", true}});
    ExpectOutput({"soundbar", "mode", "set", kSoundbar, "", "--ip", "192.168.0.20"}, "sent");
    ExpectCalls(
        {"SetSoundbarSoundMode([" + kSoundbarBytes + ", " + kIpBytes + ", 0x02, 0x0a],)",
         "SetSoundbarSoundMode([" + kSoundbarBytes + ", " + kIpBytes + "],)"});
}

TEST_F(SoundbarTest, AnySoundModeLengthIsAnAnswerThatComesWithData)
{
    // A length of 16843009 is not valid for data that begin with 1.
    Reply("GetSoundbarSoundMode", 34, 1);
    ExpectOutput(
        {"soundbar", "mode", "get"}, "mac     01:01:01:01:01:01\n"
                                     "ip      1.1.1.1\n"
                                     "length  0 (or one that does not fit the data)\n"
                                     "data    01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01");
    Reply("GetSoundbarSoundMode", 34, 2);
    EXPECT_EQ(Json::parse(Run({"soundbar", "mode", "get", "--json"}).out).at("result"), 0x02020202);
    Reply("GetSoundbarSoundMode", 33, 2);
    ExpectFailure({"soundbar", "mode", "get"}, 1, std::string("GetSoundbarSoundMode returned 0: ") + kNoSoundbar);
    Break("GetSoundbarSoundMode");
    ExpectFailure({"soundbar", "mode", "get"}, 1, "GetSoundbarSoundMode returned -1: " + kBroken);
}

TEST_F(SoundbarTest, InfoTellsTheSoundbar)
{
    ExpectOutput({"soundbar", "info"}, "mac    02:4b:49:56:00:b0\nip     192.168.0.20\nvalue  1");
    ExpectJson({"soundbar", "info"}, {{"result", 1}, {"mac", kSoundbar}, {"ip", "192.168.0.20"}});
    EXPECT_EQ(Calls().front(), "GetSoundbarDeviceInfo(0,)");
    Reply("GetSoundbarDeviceInfo", 13, 0);
    ExpectFailure({"soundbar", "info"}, 1, std::string("GetSoundbarDeviceInfo returned 0: ") + kNoSoundbar);
    SetFault(
        "GetSoundbarDeviceInfo", "reply",
        "<([byte 2, 0x4b, 0x49, 0x56, 0, 0xb0, 192, 168, 0, 20, 0xff, 0xff, 0xff, 0xff],)>");
    ExpectJson({"soundbar", "info"}, {{"result", -1}, {"mac", kSoundbar}, {"ip", "192.168.0.20"}});
}

TEST_F(SoundbarTest, SupportIsSetAndShown)
{
    ExpectOutput({"soundbar", "support", "get", kSoundbar}, "yes");
    ExpectOutput({"soundbar", "support", "set", kSoundbar, "no", "--ip", "192.168.0.20"}, "sent");
    ExpectOutput({"soundbar", "support", "get", kSoundbar}, "no");
    ExpectJson({"soundbar", "support", "set", kSoundbar, "yes"}, {{"sent", true}});
    ExpectOutput({"soundbar", "support", "set", kSoundbar, "-2"}, "sent");
    ExpectJson({"soundbar", "support", "get", kSoundbar}, {{"result", true}});
    const std::string is = "IsSoundbarSupportSoundMode([" + kSoundbarBytes + "],)";
    const std::string set = "SetSoundbarSupportSoundMode([" + kSoundbarBytes + ", ";
    ExpectCalls(
        {is, set + kIpBytes + ", 0x00, 0x00, 0x00, 0x00],)", is,
         set + "0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00],)",
         set + "0x00, 0x00, 0x00, 0x00, 0xfe, 0xff, 0xff, 0xff],)", is});
}

TEST_F(SoundbarTest, ASettingThatTheServerRefusesIsAFailure)
{
    for (const Arguments& arguments :
         {Arguments{"soundbar", "mode", "set", kLeft, "00"},
          {"soundbar", "support", "set", kLeft, "yes"},
          {"call", "SetSoundbarSoundMode", kLeft, "00"},
          {"call", "SetSoundbarSupportSoundMode", kLeft, "yes"}}) {
        ExpectFailure(arguments, 1, "SoundMode: the server refused it");
        EXPECT_THAT(Run(arguments).err, EndsWith("; kivctl soundbar info shows which soundbar there is\n"));
    }
}

TEST_F(SoundbarTest, VersionTellsAsMuchAsIsAskedFor)
{
    ExpectOutput(
        {"soundbar", "version", kSoundbar},
        "version  2\ndata     4b 49 56 20 73 6f 75 6e 64 20 6d 6f 64 65 20 32 2e 30 00 00");
    ExpectJson({"soundbar", "version", kSoundbar, "--length", "3"}, {{"result", 2}, {"data", "4b4956"}});
    EXPECT_EQ(Calls().back(), "GetSoundbarProtocolVersion([" + kSoundbarBytes + "],)");
}

TEST_F(SoundbarTest, VersionTellsAFailureFromAnAnswer)
{
    ExpectFailure(
        {"soundbar", "version", kLeft}, 1, std::string("GetSoundbarProtocolVersion returned -1: ") + kNoSoundbar);
    SetFault(
        "GetSoundbarProtocolVersion", "reply",
        "<([byte 0xff, 0xff, 0xff, 0xff, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0],)>");
    ExpectJson({"soundbar", "version", kSoundbar, "--length", "1"}, {{"result", -1}, {"data", "07"}});
}

TEST_F(SoundbarTest, BadArgumentsSendNothing)
{
    const std::string path = WriteFile("");
    std::filesystem::resize_file(path, 64UL * 1024 * 1024 - 9);
    std::vector<Refusal> cases = {
        {{"soundbar", "mode", "set", kSoundbar}, "the bytes must be given as HEX or in --file, got neither"},
        {{"soundbar", "mode", "set", kSoundbar, "xy"},
         "must be bytes of two hex digits each, such as \"01 ff\", got \"xy\""},
        {{"soundbar", "mode", "set", kSoundbar, "00", "--ip", "1"},
         "--ip: must be an IPv4 address such as 192.168.0.21, got \"1\""},
        {{"soundbar", "support", "get"}, "MAC"},
        {{"soundbar", "support", "set", kSoundbar}, "SUPPORTED"},
        {{"soundbar", "support", "set", kSoundbar, "maybe"},
         "SUPPORTED: must be no (0), yes (1) or another 32-bit integer, got \"maybe\""},
        {{"soundbar", "mode", "set", kSoundbar, "--file", path}, "are more than the bus carries"},
    };
    for (const char* length : {"0", "-1", "21", "all"}) {
        cases.push_back(
            {{"soundbar", "version", kSoundbar, "--length", length}, "--length: must be an integer from 1 to 20, got"});
    }
    ExpectRefused(cases);
}

} // namespace
} // namespace kiv::ctl::soundbar_test
