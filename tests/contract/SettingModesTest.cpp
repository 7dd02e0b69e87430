#include "RequestTest.h"

#include <climits>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace setting_modes_test {
namespace {

constexpr int kSurround = 80;
constexpr int kMultiroom = 81;

std::string Missing(const std::string& function)
{
    return "E " + function + ": [NAM_API] " +
           (function == "GetTavrinUIMode"
                ? "Cannot get TavrinUIMode from NAM, return NETSPKSETTING_SURROUND"
                : "Cannot get speakersystem mode from NAM, just return default value(NETSPKSETTING_MULTIROOM)");
}

std::string NotSupported(const std::string& function)
{
    return "E " + function + ": [NAM_API] Not support NETSPKSETTING_MULTIROOM, return NETSPKSETTING_SURROUND";
}

// The lines of a missing mode.
const Lines kMissingUiMode = {Missing("GetTavrinUIMode")};
const Lines kMissingMode = {Missing("GetNetSpkSettingMode"), NotSupported("GetNetSpkSettingMode")};

Request Getter(const std::string& function, int (*call)(), const Lines& missing)
{
    return {
        .name = function,
        .call = call,
        .sent = function + "()",
        .replyType = "(i)",
        .answered =
            [function, missing](int answer) {
                return answer == -1 ? missing : answer == kMultiroom ? Lines{NotSupported(function)} : Lines{};
            },
        .result = [](int answer) { return answer == -1 || answer == kMultiroom ? kSurround : answer; },
        .failed = Lines{"E " + function + ": [NAM_API] MethodCall Error"} + missing,
        .failure = kSurround,
    };
}

class SettingModesRequestTest : public RequestTest {};

TEST_P(SettingModesRequestTest, TheServersAnswerCounts)
{
    for (const int answer : {kSurround, kMultiroom, -1, 0, 7, -2, INT_MAX, INT_MIN}) {
        ExpectAnswered(answer);
    }
}

TEST_P(SettingModesRequestTest, AFailedCallIsLogged)
{
    ExpectFailed();
}

TEST_P(SettingModesRequestTest, AnAnswerOfAnotherTypeIsOneLineAndThePreset)
{
    ExpectOtherTypes(-1);
}

INSTANTIATE_TEST_SUITE_P(
    Functions, SettingModesRequestTest,
    ::testing::Values(
        Request{
            .name = "SetTavrinUIMode",
            .call = [] { return SetTavrinUIMode(kMultiroom); },
            .sent = "SetTavrinUIMode(81)",
            .signature = "i",
            .replyType = "(i)",
            .failed = {"E SetTavrinUIMode: [NAM_API] MethodCall Error"},
            .failure = -1,
        },
        Getter("GetTavrinUIMode", GetTavrinUIMode, kMissingUiMode),
        Getter("GetNetSpkSettingMode", GetNetSpkSettingMode, kMissingMode)),
    NameOf);

class SettingModesTest : public ApiTest {};

TEST_F(SettingModesTest, ModesPassThroughUnchanged)
{
    for (const int mode : {kSurround, 0, 82, -1, INT_MAX, INT_MIN}) {
        SetTavrinUIMode(mode);
        EXPECT_EQ(Sent().back(), "SetTavrinUIMode(" + std::to_string(mode) + ")");
    }
}

// --- Entry flags ---

Request
Flag(const std::string& function, bool (*call)(), const std::string& name, const std::string& tag, const Lines& first)
{
    return {
        .name = function,
        .call = [call] { return static_cast<int>(call()); },
        .sent = function + "()",
        .replyType = "(b)",
        .answered =
            [=](int answer) { return Lines{"I " + function + ": " + tag + name + "[" + std::to_string(answer) + "]"}; },
        .failed = {"E " + function + ": " + tag + "MethodCall Error"},
        .failure = 0,
        .first = first,
        .frame = "s_pre_checking",
    };
}

class EntryFlagRequestTest : public RequestTest {};

TEST_P(EntryFlagRequestTest, TheServersAnswerIsReturnedAndLogged)
{
    ExpectAnswered(1);
    ExpectAnswered(0);
    EXPECT_EQ(m_launchthreadId, 0U);
}

TEST_P(EntryFlagRequestTest, AFailedCallIsFalse)
{
    ExpectFailed();
}

TEST_P(EntryFlagRequestTest, AnAnswerOfAnotherTypeIsOneLineAndFalse)
{
    ExpectOtherTypes(0);
}

INSTANTIATE_TEST_SUITE_P(
    Functions, EntryFlagRequestTest,
    ::testing::Values(
        Flag("CanEnterTavrinSettings", CanEnterTavrinSettings, "bCanEnterTavrinSettings", "", {}),
        Flag(
            "FlagEnableNetworkSpeaker", FlagEnableNetworkSpeaker, "bEnableNetworkSpeaker", "[NAM_API] ",
            {"D FlagEnableNetworkSpeaker: [NAM_API] Enter"})),
    NameOf);

// An entry flag, and its result while the server is not reached.
struct EntryFlag {
    const char* name;
    bool (*call)();
    bool unreached; // its result before the server is reached
    Lines first;
    std::string unreachedLine;
};

void PrintTo(const EntryFlag& flag, std::ostream* out)
{
    *out << flag.name;
}

const EntryFlag kEntryFlags[] = {
    {"CanEnterTavrinSettings",
     CanEnterTavrinSettings,
     false,
     {},
     "I CanEnterTavrinSettings: [NAM_API] bCanEnterTavrinSettings[0]"},
    {"FlagEnableNetworkSpeaker",
     FlagEnableNetworkSpeaker,
     true,
     {"D FlagEnableNetworkSpeaker: [NAM_API] Enter"},
     "I FlagEnableNetworkSpeaker: [NAM_API] bEnableNetworkSpeaker[1]"},
};

class EntryFlagTest : public BusTest, public ::testing::WithParamInterface<EntryFlag> {
protected:
    // Returns its lines if the server cannot be reached at once. The last one is about the remedy.
    Lines Unreached(const std::string& remedy) const
    {
        return GetParam().first +
               Lines{
                   "I s_pre_checking: >>> API Start ",
                   "E m_IsExistedBusname: !!! ERROR org.lumra.tv.networkspeaker.server not exist ",
                   "E GetProxy: !!! ERROR [NAM_API] m_GetProxyObj fail",
                   "E s_pre_checking: !!! ERROR ns_proxy.GetProxy() return error, request launch kiv-service",
                   "I s_pre_checking: " + remedy,
               };
    }

    Lines Launched() const
    {
        return Unreached("before m_CreateThread") +
               Lines{
                   "I m_CreateThread: [NAM-SEQ2] pthread_create(m_CreateThread) successful", GetParam().unreachedLine};
    }

    static void ReadFeature()
    {
        GetWhetherKivDisabled();
        platform_log::Clear();
    }
};

TEST_P(EntryFlagTest, ADisabledDeviceHasItsOwnResult)
{
    StartServer();
    feature::Set(false);
    trace_->Clear();

    EXPECT_EQ(GetParam().call(), GetParam().unreached);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            GetParam().first + Lines{
                                   "I GetWhetherKivDisabled: GetWhetherKivDisabled g_KivDisabled=[1]",
                                   "E s_pre_checking: [NAM_API] GetWhetherKivDisabled failed",
                                   GetParam().unreachedLine,
                               }));
    EXPECT_THAT(trace_->Messages(), IsEmpty());
    EXPECT_EQ(m_launchthreadId, 0U);
}

TEST_P(EntryFlagTest, AnAbsentServerIsNotWaitedFor)
{
    ReadFeature();

    EXPECT_EQ(GetParam().call(), GetParam().unreached);

    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(Launched()));
    EXPECT_EQ(Sent().front(), kOwnerQuery);
    platform_log::WaitFor("I m_MainLaunchPro: g_dbusretrycnt=[6]");
    EXPECT_EQ(platform_log::Count("I m_MainLaunchPro: g_dbusretrycnt=[7]"), 0U);
}

TEST_P(EntryFlagTest, ACallWhileTheServerIsBeingLaunchedGivesTheLaunchMoreTime)
{
    ReadFeature();
    // The launch thread waits at this line until the test releases it.
    std::mutex held;
    std::unique_lock hold(held);
    platform_log::OnLine([&](const LogLine& line) {
        if (line.Short() == "I m_MainLaunchPro: g_dbusretrycnt=[2]") {
            const std::lock_guard wait(held);
        }
    });
    GetParam().call();
    platform_log::WaitFor("I m_MainLaunchPro: g_dbusretrycnt=[2]");
    platform_log::Clear();

    EXPECT_EQ(GetParam().call(), GetParam().unreached);

    EXPECT_THAT(
        platform_log::OfTestThread(), ElementsAreArray(Unreached("reset try count") + Lines{GetParam().unreachedLine}));
    platform_log::OnLine(nullptr);
    hold.unlock();
    platform_log::WaitFor("I m_MainLaunchPro: g_dbusretrycnt=[6]");
}

TEST_P(EntryFlagTest, TheServerIsLaunchedAndThenAnswers)
{
    MakeServerActivatable();
    ReadFeature();

    EXPECT_EQ(GetParam().call(), GetParam().unreached);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(Launched()));

    platform_log::WaitFor("I m_MainLaunchPro: bChecking=[1]");
    for (const bool answer : {false, true}) {
        control_.SetFault(GetParam().name, std::string("{'reply': <(") + (answer ? "true" : "false") + ",)>}");
        EXPECT_EQ(GetParam().call(), answer);
    }
}

INSTANTIATE_TEST_SUITE_P(Functions, EntryFlagTest, ::testing::ValuesIn(kEntryFlags), [](const auto& flag) {
    return std::string(flag.param.name);
});

} // namespace
} // namespace setting_modes_test
