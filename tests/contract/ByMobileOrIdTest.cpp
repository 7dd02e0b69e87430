#include "contract/RequestTest.h"

#include <climits>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace by_mobile_or_id_test {
namespace {

const unsigned char kParam[] = {1, 2, 0xff};

Lines ResultLine(const std::string& function, int answer)
{
    return {"I " + function + ": [NAM_API] result[" + std::to_string(answer) + "]"};
}

Lines FailedByIdLine(const std::string& function)
{
    return {"E " + function + ": [NAM_API] MethodCall(" + function + ") Error"};
}

const Request kRequests[] = {
    {
        .name = "ConnectNetworkSpeakerByMobile",
        .call = [] { return ConnectNetworkSpeakerByMobile(kParam, 3); },
        .sent = "ConnectNetworkSpeakerByMobile(" + BytesText({3, 0, 0, 0, 1, 2, 0xff}) + ")",
        .signature = "ay",
        .replyType = "(i)",
        .answered =
            [](int answer) {
                return Lines{"I ConnectNetworkSpeakerByMobile: return value[" + std::to_string(answer) + "]"};
            },
        .failed =
            {MethodErrorLine("ConnectNetworkSpeakerByMobile"), "I ConnectNetworkSpeakerByMobile: return value[-1]"},
    },
    {
        .name = "Vireon_StartNetworkSpeakerByID",
        .call = [] { return Vireon_StartNetworkSpeakerByID("ABCDEF", 1, 2, 3); },
        .sent = "Vireon_StartNetworkSpeakerByID(0x41, 0x42, 0x43, 0x44, 0x45, 2, 1, 3)",
        .signature = "yyyyyiii",
        .replyType = "(i)",
        .answered = [](int answer) { return ResultLine("Vireon_StartNetworkSpeakerByID", answer); },
        .failed = FailedByIdLine("Vireon_StartNetworkSpeakerByID"),
        .failure = 0,
    },
    {
        .name = "StartNetworkSpeakerByID",
        .call = [] { return StartNetworkSpeakerByID(1, 2, 3); },
        .sent = "StartNetworkSpeakerByID(2, 1, 3)",
        .signature = "iii",
        .replyType = "(i)",
        .answered = [](int answer) { return ResultLine("StartNetworkSpeakerByID", answer); },
        .failed = FailedByIdLine("StartNetworkSpeakerByID"),
        .failure = 0,
    },
};

INSTANTIATE_TEST_SUITE_P(ByMobileOrId, RequestTest, ::testing::ValuesIn(kRequests), NameOf());

// --- ConnectNetworkSpeakerByMobile ---

class ByMobileOrIdTest : public ApiTest {
protected:
    explicit ByMobileOrIdTest(const kiv::sandbox::BusOptions& options = {}) : ApiTest(options) {}

    // Returns the bytes that the server got in its last call of the method.
    std::vector<unsigned char> SentByMobile(const unsigned char* param, unsigned length)
    {
        control_.SetFault("ConnectNetworkSpeakerByMobile", "{'reply': <(5,)>}");
        EXPECT_EQ(ConnectNetworkSpeakerByMobile(param, length), 5);
        return Bytes(control_.Calls().back());
    }
};

TEST_F(ByMobileOrIdTest, TheBytesFollowTheirNumber)
{
    std::vector<unsigned char> param(0x0201);
    for (std::size_t i = 0; i < param.size(); ++i) {
        param[i] = static_cast<unsigned char>(i);
    }
    std::vector<unsigned char> payload = {1, 2, 0, 0};
    payload.insert(payload.end(), param.begin(), param.end());

    EXPECT_EQ(SentByMobile(param.data(), 0x0201), payload);
}

TEST_F(ByMobileOrIdTest, NoBytesAreTheirNumberAlone)
{
    EXPECT_THAT(SentByMobile(kParam, 0), ElementsAre(0, 0, 0, 0));
}

TEST_F(ByMobileOrIdTest, ANullParameterIsRefusedBeforeAllElse)
{
    for (const unsigned length : {0U, 3U, UINT_MAX}) {
        EXPECT_EQ(ConnectNetworkSpeakerByMobile(nullptr, length), -1);
    }
    ExpectLog(Lines(3, "E ConnectNetworkSpeakerByMobile: NULL param"));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(ByMobileOrIdTest, ANullParameterIsRefusedOnADisabledDeviceToo)
{
    g_KivDisabled = true;
    EXPECT_EQ(ConnectNetworkSpeakerByMobile(nullptr, 1), -1);
    ExpectLog({"E ConnectNetworkSpeakerByMobile: NULL param"});
}

TEST_F(ByMobileOrIdTest, APayloadThatTheBusCannotCarryIsAFailedCall)
{
    const std::string function = "ConnectNetworkSpeakerByMobile";
    const std::vector<unsigned char> param(kLongestArray - 3);

    EXPECT_EQ(ConnectNetworkSpeakerByMobile(param.data(), static_cast<unsigned>(param.size())), -1);

    ExpectLog(Logged(
        function, {}, {TooLongLine(function), MethodErrorLine(function), "I " + function + ": return value[-1]"}));
    ExpectNotCalled();
}

TEST_F(ByMobileOrIdTest, ALengthThatDoesNotFitInAnIntCannotBeAllocatedAndIsNotRead)
{
    for (const unsigned length : {INT_MAX - 3U, 0x7fffffffU, 0x80000000U, UINT_MAX - 4, UINT_MAX - 3, UINT_MAX}) {
        SCOPED_TRACE(length);
        ForgetTraffic();
        EXPECT_EQ(ConnectNetworkSpeakerByMobile(kParam, length), -1);
        ExpectLog(
            PrologueLines("ConnectNetworkSpeakerByMobile") +
            "E ConnectNetworkSpeakerByMobile: (pParam == NULL) return");
        ExpectNothingAsked();
    }
    EXPECT_THAT(SentByMobile(kParam, 1), ElementsAre(1, 0, 0, 0, 1));
}

class LongMessagesTest : public ByMobileOrIdTest {
protected:
    LongMessagesTest() : ByMobileOrIdTest({.extraConfig = kLongMessages}) {}
};

TEST_F(LongMessagesTest, TheLongestPayloadThatDBusAllowsIsSent)
{
    const std::string function = "ConnectNetworkSpeakerByMobile";
    const std::vector<unsigned char> param(kLongestArray - 4);
    // The bus answers for a server that is gone. The trace and the simulator would take long for so long a call.
    trace_.reset();
    int calls = 0;
    platform_log::OnLine([&](const LogLine& line) {
        if (line.Short() == kEnter && ++calls == 2) {
            KillServer();
        }
    });

    EXPECT_EQ(ConnectNetworkSpeakerByMobile(param.data(), static_cast<unsigned>(param.size())), -1);

    ExpectLog(Logged(
        function, {},
        {ErrorLine(function, NoServerError()), MethodErrorLine(function), "I " + function + ": return value[-1]"}));
}

// --- The two functions with an identifier ---

TEST_F(ByMobileOrIdTest, AnIdentifierOfFourCharactersOrLessSendsNothingAndSaysNothing)
{
    for (const char* id : {static_cast<const char*>(nullptr), "", "A", "ABCD"}) {
        ForgetTraffic();
        EXPECT_EQ(Vireon_StartNetworkSpeakerByID(id, 1, 2, 3), 0);
        ExpectNothingAsked();
        ExpectLog(PrologueLines("Vireon_StartNetworkSpeakerByID"));
    }
}

TEST_F(ByMobileOrIdTest, TheIdentifierIsNotLookedAtBeforeTheServerIsReached)
{
    ExpectUnreached(
        "Vireon_StartNetworkSpeakerByID", {}, [] { EXPECT_EQ(Vireon_StartNetworkSpeakerByID(nullptr, 1, 2, 3), -1); });
}

TEST_F(ByMobileOrIdTest, TheFirstFiveBytesOfTheIdentifierAreSent)
{
    Vireon_StartNetworkSpeakerByID("ABCDE", 1, 2, 3);
    EXPECT_EQ(Sent().back(), "Vireon_StartNetworkSpeakerByID(0x41, 0x42, 0x43, 0x44, 0x45, 2, 1, 3)");

    Vireon_StartNetworkSpeakerByID("\x01\x7f\x80\xff ...", INT_MIN, -1, INT_MAX);
    EXPECT_EQ(
        Sent().back(), "Vireon_StartNetworkSpeakerByID(0x01, 0x7f, 0x80, 0xff, 0x20, -1, -2147483648, 2147483647)");
}

TEST_F(ByMobileOrIdTest, NumbersPassThroughUnchanged)
{
    StartNetworkSpeakerByID(INT_MIN, -1, INT_MAX);
    EXPECT_EQ(Sent().back(), "StartNetworkSpeakerByID(-1, -2147483648, 2147483647)");
}

} // namespace
} // namespace by_mobile_or_id_test
