#include "contract/RequestTest.h"

#include <algorithm>
#include <array>
#include <climits>

using namespace kiv::test;
using ::testing::ElementsAre;

namespace auto_connect_test {
namespace {

const unsigned char kMacs[] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
const std::vector<unsigned char> kMacsSent = {0x02, 0x00, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44,
                                              0x55, 0x66, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};

Request AutoConnect(const std::string& function, int (*call)(const unsigned char*, int), const Lines& first)
{
    const auto answered = [function](int answer) {
        return Lines{"I " + function + ": [NAM_API] nRet[" + std::to_string(answer) + "]"};
    };
    return {
        .name = function,
        .call = [call] { return call(kMacs, 2); },
        .sent = function + "(" + BytesText(kMacsSent) + ")",
        .signature = "ay",
        .replyType = "(i)",
        .answered = answered,
        .failed = Lines{MethodErrorLine(function)} + answered(-1),
        .first = first,
    };
}

Request OneNumber(const std::string& function, int (*call)(int))
{
    return {
        .name = function,
        .call = [call] { return call(-7); },
        .sent = function + "(-7)",
        .signature = "i",
        .replyType = "(i)",
        .failed = {MethodErrorLine(function)},
    };
}

const Lines kOutdoor = {"I AutoConnectNewSpeakersForOutdoor: AutoConnectNewSpeakersForOutdoor"};

INSTANTIATE_TEST_SUITE_P(
    AutoConnect, RequestTest,
    ::testing::Values(
        AutoConnect("AutoConnectNewSpeakers", AutoConnectNewSpeakers, {}),
        AutoConnect("AutoConnectNewSpeakersForOutdoor", AutoConnectNewSpeakersForOutdoor, kOutdoor),
        OneNumber("ConnectToSpeakerForInfraLessSetup", ConnectToSpeakerForInfraLessSetup),
        OneNumber("StartNetworkSpeakerGroupByMobile", StartNetworkSpeakerGroupByMobile)),
    NameOf());

// --- The list of MAC addresses ---

struct MacList {
    const char* function;
    int (*call)(const unsigned char*, int);
    Lines first;

    friend void PrintTo(const MacList& list, std::ostream* out) { *out << list.function; }
};

const MacList kMacLists[] = {
    {"AutoConnectNewSpeakers", AutoConnectNewSpeakers, {}},
    {"AutoConnectNewSpeakersForOutdoor", AutoConnectNewSpeakersForOutdoor, kOutdoor},
};

class MacListTest : public ApiTest, public ::testing::WithParamInterface<MacList> {
protected:
    const std::string function_ = GetParam().function;
    int (*const call_)(const unsigned char*, int) = GetParam().call;
};

TEST_P(MacListTest, TheAddressesFollowTheirNumber)
{
    call_(kMacs, 2);
    EXPECT_EQ(Bytes(control_.Calls().back()), kMacsSent);

    call_(kMacs + 3, 1);
    EXPECT_THAT(Bytes(control_.Calls().back()), ElementsAre(1, 0, 0, 0, 0x44, 0x55, 0x66, 0xaa, 0xbb, 0xcc));

    std::vector<unsigned char> payload(4 + 6 * 0x0302, 0x5a);
    call_(payload.data() + 4, 0x0302);
    std::ranges::copy(std::array<unsigned char, 4>{2, 3, 0, 0}, payload.begin());
    EXPECT_EQ(Bytes(control_.Calls().back()), payload);
}

TEST_P(MacListTest, NoListAndNoSpeakersAreRefused)
{
    const std::pair<const unsigned char*, int> refused[] = {{nullptr, 2}, {nullptr, 0}, {nullptr, INT_MAX},
                                                            {kMacs, 0},   {kMacs, -1},  {kMacs, INT_MIN}};
    for (const auto& [macs, count] : refused) {
        ForgetTraffic();
        EXPECT_EQ(call_(macs, count), -1);
        ExpectLog(
            GetParam().first + PrologueLines(function_) +
            ("E " + function_ + ": (connectNewSpeakersMacAddrLists == NULL || nNewSpeakersCount <= 0) return"));
        ExpectNothingAsked();
    }
}

TEST_P(MacListTest, TheListIsNotLookedAtBeforeTheServerIsReached)
{
    ExpectUnreached(function_, GetParam().first, [&] { EXPECT_EQ(call_(nullptr, 0), -1); });
}

TEST_P(MacListTest, AListThatTheBusCannotCarryIsAFailedCall)
{
    const std::vector<unsigned char> macs(kLongestArray / 6 * 6 + 6);

    EXPECT_EQ(call_(macs.data(), static_cast<int>(macs.size() / 6)), -1);

    const Lines after = {TooLongLine(function_), MethodErrorLine(function_), "I " + function_ + ": [NAM_API] nRet[-1]"};
    ExpectLog(GetParam().first + Logged(function_, {}, after));
    ExpectNotCalled();
}

TEST_P(MacListTest, ANumberWhoseLengthDoesNotFitInAnIntCannotBeAllocatedAndIsNotRead)
{
    // In 32 bits, six times some of these counts is a small number.
    for (const int count : {(INT_MAX - 4) / 6 + 1, 0x2aaaaaaa, 0x2aaaaaab, 0x55555556, INT_MAX}) {
        SCOPED_TRACE(count);
        ForgetTraffic();
        EXPECT_EQ(call_(kMacs, count), -1);
        ExpectLog(
            GetParam().first + PrologueLines(function_) +
            ("E " + function_ + ": (pNewSpeakersMacList == NULL) return"));
        ExpectNothingAsked();
    }
    EXPECT_EQ(StopNetworkSpeaker(6), 6);
}

INSTANTIATE_TEST_SUITE_P(Functions, MacListTest, ::testing::ValuesIn(kMacLists), [](const auto& list) {
    return std::string(list.param.function);
});

// --- The two functions with one number ---

class AutoConnectTest : public ApiTest {};

TEST_F(AutoConnectTest, NumbersPassThroughUnchanged)
{
    for (const int number : {0, INT_MAX, INT_MIN}) {
        ConnectToSpeakerForInfraLessSetup(number);
        EXPECT_EQ(Sent().back(), "ConnectToSpeakerForInfraLessSetup(" + std::to_string(number) + ")");
        StartNetworkSpeakerGroupByMobile(number);
        EXPECT_EQ(Sent().back(), "StartNetworkSpeakerGroupByMobile(" + std::to_string(number) + ")");
    }
}

} // namespace
} // namespace auto_connect_test
