#include "contract/RequestTest.h"
#include "support/Gate.h"

#include <climits>

using namespace kiv::test;
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
        .failed = Lines{MethodErrorLine(function)} + missing,
        .failure = kSurround,
    };
}

INSTANTIATE_TEST_SUITE_P(
    SettingModes, RequestTest,
    ::testing::Values(
        Request{
            .name = "SetTavrinUIMode",
            .call = [] { return SetTavrinUIMode(kMultiroom); },
            .sent = "SetTavrinUIMode(81)",
            .signature = "i",
            .replyType = "(i)",
            .failed = {MethodErrorLine("SetTavrinUIMode")},
        },
        Getter("GetTavrinUIMode", GetTavrinUIMode, kMissingUiMode),
        Getter("GetNetSpkSettingMode", GetNetSpkSettingMode, kMissingMode)),
    NameOf());

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
        .preset = 0,
        .failed = {"E " + function + ": " + tag + "MethodCall Error"},
        .failure = 0,
        .first = first,
        .frame = "s_pre_checking",
    };
}

INSTANTIATE_TEST_SUITE_P(
    EntryFlags, RequestTest,
    ::testing::Values(
        Flag("CanEnterTavrinSettings", CanEnterTavrinSettings, "bCanEnterTavrinSettings", "", {}),
        Flag(
            "FlagEnableNetworkSpeaker", FlagEnableNetworkSpeaker, "bEnableNetworkSpeaker", "[NAM_API] ",
            {"D FlagEnableNetworkSpeaker: [NAM_API] Enter"})),
    NameOf());

// An entry flag, and its result while the server is not reached.
struct EntryFlag {
    const char* name;
    bool (*call)();
    bool unreached; // its result before the server is reached
    Lines first;
    std::string unreachedLine;

    friend void PrintTo(const EntryFlag& flag, std::ostream* out) { *out << flag.name; }
};

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
        return GetParam().first + StartLine("s_pre_checking") + kAbsentLine + kNoIdLine + LaunchLine("s_pre_checking") +
               ("I s_pre_checking: " + remedy);
    }

    Lines Launched() const
    {
        return Unreached("before m_CreateThread") +
               "I m_CreateThread: [NAM-SEQ2] pthread_create(m_CreateThread) successful" + GetParam().unreachedLine;
    }
};

TEST_P(EntryFlagTest, ADisabledDeviceHasItsOwnResult)
{
    StartServer();
    feature::Set(false);
    trace_->Clear();

    EXPECT_EQ(GetParam().call(), GetParam().unreached);

    ExpectLog(GetParam().first + DisabledLines("s_pre_checking") + GetParam().unreachedLine);
    EXPECT_THAT(trace_->Messages(), IsEmpty());
    EXPECT_EQ(m_launchthreadId, 0U);
}

TEST_P(EntryFlagTest, AnAbsentServerIsNotWaitedFor)
{
    ReadFeature();

    EXPECT_EQ(GetParam().call(), GetParam().unreached);

    ExpectLog(Launched());
    EXPECT_EQ(Sent().front(), kOwnerQuery);
    platform_log::WaitFor("I m_MainLaunchPro: g_dbusretrycnt=[6]");
    EXPECT_EQ(platform_log::Count("I m_MainLaunchPro: g_dbusretrycnt=[7]"), 0U);
}

TEST_P(EntryFlagTest, ACallWhileTheServerIsBeingLaunchedGivesTheLaunchMoreTime)
{
    ReadFeature();
    StopAtLine stop("I m_MainLaunchPro: g_dbusretrycnt=[2]");
    GetParam().call();
    stop.WaitUntilReached();
    platform_log::Clear();

    EXPECT_EQ(GetParam().call(), GetParam().unreached);

    ExpectLog(Unreached("reset try count") + GetParam().unreachedLine);
    stop.Release();
    platform_log::WaitFor("I m_MainLaunchPro: g_dbusretrycnt=[6]");
}

TEST_P(EntryFlagTest, TheServerIsLaunchedAndThenAnswers)
{
    MakeServerActivatable();
    ReadFeature();

    EXPECT_EQ(GetParam().call(), GetParam().unreached);
    ExpectLog(Launched());

    platform_log::WaitFor("I m_MainLaunchPro: bChecking=[1]");
    for (const bool answer : {false, true}) {
        control_.SetFault(GetParam().name, std::string("{'reply': <(") + (answer ? "true" : "false") + ",)>}");
        EXPECT_EQ(GetParam().call(), answer);
    }
}

INSTANTIATE_TEST_SUITE_P(Functions, EntryFlagTest, ::testing::ValuesIn(kEntryFlags), NameOf());

} // namespace
} // namespace setting_modes_test
