#include "KivctlTest.h"

#include <filesystem>

namespace kiv::ctl::connect_test {
namespace {

using ConnectTest = KivctlTest;

// The simulated TV sees these speakers, and is not connected with them.
const std::string kBedroom = "02:4b:49:56:00:05";
const std::string kTerrace = "02:4b:49:56:00:06";
const std::string kBedroomBytes = "0x02, 0x4b, 0x49, 0x56, 0x00, 0x05";
const std::string kTerraceBytes = "0x02, 0x4b, 0x49, 0x56, 0x00, 0x06";

TEST_F(ConnectTest, NewSendsTheNumberAndTheAddresses)
{
    ExpectOutput(
        {"connect", "new", kBedroom, kTerrace}, "the server answered 2 (number of speakers that are newly connected)");
    ExpectJson({"connect", "new", "--outdoor", kTerrace}, {{"result", 0}});
    EXPECT_EQ(
        Calls(), (std::vector<std::string>{
                     "AutoConnectNewSpeakers([0x02, 0x00, 0x00, 0x00, " + kBedroomBytes + ", " + kTerraceBytes + "],)",
                     "AutoConnectNewSpeakersForOutdoor([0x01, 0x00, 0x00, 0x00, " + kTerraceBytes + "],)"}));
}

TEST_F(ConnectTest, OneNumberIsPassed)
{
    ExpectOutput({"connect", "direct", "5"}, "the server answered 0");
    ExpectOutput({"connect", "group", "1"}, "the server answered 3 (number of speakers that play now)");
    ExpectFailure({"connect", "group", "-1"}, 1, "StartNetworkSpeakerGroupByMobile returned -1: the server refused it");
    const std::vector<std::string> calls = Calls();
    ASSERT_EQ(calls.size(), 4U);
    EXPECT_EQ(calls[0], "ConnectToSpeakerForInfraLessSetup(5,)");
    EXPECT_EQ(calls[1], "StartNetworkSpeakerGroupByMobile(1,)");
    EXPECT_EQ(calls[2], "StartNetworkSpeakerGroupByMobile(-1,)");
}

TEST_F(ConnectTest, AMobileDevicesBytesTravelAsTheyAre)
{
    ExpectOutput({"connect", "by-mobile", "02 4b495600 05"}, "the server answered 0");
    ExpectOutput(
        {"connect", "by-mobile", "--file", WriteFile(std::string("\x02\x4b\x49\x56\x00\x05\xff", 7))},
        "the server answered 0");
    ExpectFailure({"connect", "by-mobile", ""}, 1, "ConnectNetworkSpeakerByMobile returned -1");
    const std::vector<std::string> calls = Calls();
    ASSERT_EQ(calls.size(), 4U);
    EXPECT_EQ(calls[0], "ConnectNetworkSpeakerByMobile([0x06, 0x00, 0x00, 0x00, " + kBedroomBytes + "],)");
    EXPECT_EQ(calls[1], "ConnectNetworkSpeakerByMobile([0x07, 0x00, 0x00, 0x00, " + kBedroomBytes + ", 0xff],)");
    EXPECT_EQ(calls[2], "ConnectNetworkSpeakerByMobile([0x00, 0x00, 0x00, 0x00],)");
}

TEST_F(ConnectTest, ByIdPassesItsNumbers)
{
    ExpectOutput({"connect", "by-id", "80", "3", "-9"}, "the server answered 1 (number of speakers that play now)");
    ExpectOutput(
        {"connect", "by-id", "81", "4", "7", "--id", "KIV05 and more"},
        "the server answered 1 (number of speakers that play now)");
    EXPECT_EQ(
        Calls(), (std::vector<std::string>{
                     "StartNetworkSpeakerByID(3, 80, -9)",
                     "Vireon_StartNetworkSpeakerByID(0x4b, 0x49, 0x56, 0x30, 0x35, 4, 81, 7)"}));
}

TEST_F(ConnectTest, ByIdTakesZeroForAFailure)
{
    SetFault("StartNetworkSpeakerByID", "error", "'org.example.Broken'");
    ExpectFailure(
        {"connect", "by-id", "80", "3", "0"}, 1,
        "StartNetworkSpeakerByID returned 0: the server answered with the error org.example.Broken");
    ExpectFailure(
        {"connect", "by-id", "80", "3", "0", "--id", "Nobody"}, 1, "Vireon_StartNetworkSpeakerByID returned -1");
}

TEST_F(ConnectTest, TypeAsksForListsAndForOne)
{
    ExpectOutput({"connect", "type", kLeft + "=2", kRight}, "the server answered 1");
    ExpectJson({"connect", "type", "--id", "5"}, {{"result", 0}});
    ExpectFailure({"connect", "type", "--id", "99"}, 1, "GetSpksConnectionTypeByID returned -1");
    SetFault("GetSpksConnectionTypeByID", "error", "'org.example.Broken'");
    ExpectFailure(
        {"connect", "type", "--id", "5"}, 1,
        "GetSpksConnectionTypeByID returned 0: the server answered with the error org");
    const std::vector<std::string> calls = Calls();
    EXPECT_EQ(
        calls.at(0), "GetSpksConnectionType([" + Record("0x02, 0x00, 0x00, 0x00", kLeftBytes) + ", " +
                         Record("0x00, 0x00, 0x00, 0x00", kRightBytes) + "],)");
    EXPECT_EQ(calls.at(1), "GetSpksConnectionTypeByID(5,)");
}

TEST_F(ConnectTest, TypeTakesTheSpeakersFromAFile)
{
    ExpectOutput({"connect", "type", "--file", WriteFile("[]")}, "the server answered 0");
    EXPECT_EQ(Calls(), std::vector<std::string>{"GetSpksConnectionType([],)"});
}

TEST_F(ConnectTest, BadArgumentsSendNothing)
{
    ExpectFailure({"connect"}, 2, "no command given");
    ExpectFailure({"connect", "new"}, 2, "MAC");
    ExpectFailure(
        {"connect", "new", kBedroom, "02:4b"}, 2, "must be a MAC address such as 02:4b:49:56:00:01, got \"02:4b\"");
    ExpectFailure({"connect", "new", kBedroom + "=1"}, 2, "must be a MAC address such as");
    ExpectFailure({"connect", "direct"}, 2, "N");
    ExpectFailure({"connect", "direct", "1.5"}, 2, "N: must be a 32-bit integer, got \"1.5\"");
    ExpectFailure({"connect", "group", "1", "2"}, 2, "2");
    ExpectFailure({"connect", "by-mobile"}, 2, "the bytes must be given as HEX or in --file, got neither");
    ExpectFailure(
        {"connect", "by-mobile", "00", "--file", WriteFile("")}, 2,
        "the bytes must be given as HEX or in --file, got both");
    ExpectFailure(
        {"connect", "by-mobile", "0"}, 2, "must be bytes of two hex digits each, such as \"01 ff\", got \"0\"");
    ExpectFailure({"connect", "by-mobile", "0 0"}, 2, "got \"0 0\"");
    ExpectFailure({"connect", "by-mobile", "0x00"}, 2, "got \"0x00\"");
    ExpectFailure({"connect", "by-mobile", "--file", bus_.Directory() / "absent"}, 2, "No such file or directory");
    ExpectFailure({"connect", "by-id", "1", "2"}, 2, "THIRD");
    ExpectFailure(
        {"connect", "by-id", "1", "2", "3", "--id", "KIV5"}, 2,
        "the identifier must have 5 characters or more, got \"KIV5\"");
    ExpectFailure({"connect", "type"}, 2, "speakers must be named as SPEAKER or in --file, got neither");
    ExpectFailure({"connect", "type", "--id", "one"}, 2, "--id: must be a 32-bit integer, got \"one\"");
    ExpectFailure({"connect", "type", "--id", "1", kLeft}, 2, "--id");
    EXPECT_EQ(Calls(), std::vector<std::string>{});
}

TEST_F(ConnectTest, WhatTheBusCannotCarryIsNotSent)
{
    const std::string path = WriteFile("");
    std::filesystem::resize_file(path, 64UL * 1024 * 1024 - 3);
    ExpectFailure({"connect", "by-mobile", "--file", path}, 2, "67108861 bytes are more than the bus carries");
    EXPECT_EQ(Calls(), std::vector<std::string>{});
}

} // namespace
} // namespace kiv::ctl::connect_test
