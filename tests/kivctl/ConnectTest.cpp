#include "kivctl/KivctlTest.h"

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
    ExpectCalls(
        {"AutoConnectNewSpeakers([0x02, 0x00, 0x00, 0x00, " + kBedroomBytes + ", " + kTerraceBytes + "],)",
         "AutoConnectNewSpeakersForOutdoor([0x01, 0x00, 0x00, 0x00, " + kTerraceBytes + "],)"});
}

TEST_F(ConnectTest, OneNumberIsPassed)
{
    ExpectOutput({"connect", "direct", "5"}, "the server answered 0");
    ExpectOutput({"connect", "group", "1"}, "the server answered 3 (number of speakers that play now)");
    ExpectFailure({"connect", "group", "-1"}, 1, "StartNetworkSpeakerGroupByMobile returned -1: the server refused it");
    ExpectCalls(
        {"ConnectToSpeakerForInfraLessSetup(5,)", "StartNetworkSpeakerGroupByMobile(1,)",
         "StartNetworkSpeakerGroupByMobile(-1,)", "StartNetworkSpeakerGroupByMobile(-1,)"});
}

TEST_F(ConnectTest, AMobileDevicesBytesTravelAsTheyAre)
{
    ExpectOutput({"connect", "by-mobile", "02 4b495600 05"}, "the server answered 0");
    ExpectOutput(
        {"connect", "by-mobile", "--file", WriteFile(std::string("\x02\x4b\x49\x56\x00\x05\xff", 7))},
        "the server answered 0");
    ExpectFailure({"connect", "by-mobile", ""}, 1, "ConnectNetworkSpeakerByMobile returned -1");
    ExpectCalls(
        {"ConnectNetworkSpeakerByMobile([0x06, 0x00, 0x00, 0x00, " + kBedroomBytes + "],)",
         "ConnectNetworkSpeakerByMobile([0x07, 0x00, 0x00, 0x00, " + kBedroomBytes + ", 0xff],)",
         "ConnectNetworkSpeakerByMobile([0x00, 0x00, 0x00, 0x00],)",
         "ConnectNetworkSpeakerByMobile([0x00, 0x00, 0x00, 0x00],)"});
}

TEST_F(ConnectTest, ByIdPassesItsNumbers)
{
    ExpectOutput({"connect", "by-id", "80", "3", "-9"}, "the server answered 1 (number of speakers that play now)");
    ExpectOutput(
        {"connect", "by-id", "81", "4", "7", "--id", "KIV05 and more"},
        "the server answered 1 (number of speakers that play now)");
    ExpectCalls(
        {"StartNetworkSpeakerByID(3, 80, -9)",
         "Vireon_StartNetworkSpeakerByID(0x4b, 0x49, 0x56, 0x30, 0x35, 4, 81, 7)"});
}

TEST_F(ConnectTest, ByIdTakesZeroForAFailure)
{
    Break("StartNetworkSpeakerByID");
    ExpectFailure({"connect", "by-id", "80", "3", "0"}, 1, "StartNetworkSpeakerByID returned 0: " + kBroken);
    ExpectFailure(
        {"connect", "by-id", "80", "3", "0", "--id", "Nobody"}, 1, "Vireon_StartNetworkSpeakerByID returned -1");
}

TEST_F(ConnectTest, TypeAsksForListsAndForOne)
{
    ExpectOutput({"connect", "type", kLeft + "=2", kRight}, "the server answered 1");
    ExpectJson({"connect", "type", "--id", "5"}, {{"result", 0}});
    ExpectCalls(
        {"GetSpksConnectionType([" + Record(2, kLeftBytes) + ", " + Record(0, kRightBytes) + "],)",
         "GetSpksConnectionTypeByID(5,)"});
    ExpectFailure({"connect", "type", "--id", "99"}, 1, "GetSpksConnectionTypeByID returned -1");
    Break("GetSpksConnectionTypeByID");
    ExpectFailure(
        {"connect", "type", "--id", "5"}, 1,
        "GetSpksConnectionTypeByID returned 0: the server answered with the error org");
}

TEST_F(ConnectTest, TypeTakesTheSpeakersFromAFile)
{
    ExpectOutput({"connect", "type", "--file", WriteFile("[]")}, "the server answered 0");
    ExpectCalls({"GetSpksConnectionType([],)"});
}

TEST_F(ConnectTest, BadArgumentsSendNothing)
{
    ExpectRefused({
        {{"connect", "new"}, "MAC"},
        {{"connect", "new", kBedroom, "02:4b"}, "must be a MAC address such as 02:4b:49:56:00:01, got \"02:4b\""},
        {{"connect", "new", kBedroom + "=1"}, "must be a MAC address such as"},
        {{"connect", "direct"}, "N"},
        {{"connect", "direct", "1.5"}, "N: must be a 32-bit integer, got \"1.5\""},
        {{"connect", "group", "1", "2"}, "2"},
        {{"connect", "by-mobile"}, "the bytes must be given as HEX or in --file, got neither"},
        {{"connect", "by-mobile", "00", "--file", WriteFile("")},
         "the bytes must be given as HEX or in --file, got both"},
        {{"connect", "by-mobile", "0"}, "must be bytes of two hex digits each, such as \"01 ff\", got \"0\""},
        {{"connect", "by-mobile", "0 0"}, "got \"0 0\""},
        {{"connect", "by-mobile", "0x00"}, "got \"0x00\""},
        {{"connect", "by-mobile", "--file", bus_.Directory() / "absent"}, "No such file or directory"},
        {{"connect", "by-id", "1", "2"}, "THIRD"},
        {{"connect", "by-id", "1", "2", "3", "--id", "KIV5"},
         "the identifier must have 5 characters or more, got \"KIV5\""},
        {{"connect", "type"}, "speakers must be named as SPEAKER or in --file, got neither"},
        {{"connect", "type", "--id", "one"}, "--id: must be a 32-bit integer, got \"one\""},
        {{"connect", "type", "--id", "1", kLeft}, "--id"},
    });
}

TEST_F(ConnectTest, WhatTheBusCannotCarryIsNotSent)
{
    const std::string path = WriteFile("");
    std::filesystem::resize_file(path, 64UL * 1024 * 1024 - 3);
    ExpectFailure({"connect", "by-mobile", "--file", path}, 2, "67108861 bytes are more than the bus carries");
    ExpectCalls({});
}

} // namespace
} // namespace kiv::ctl::connect_test
