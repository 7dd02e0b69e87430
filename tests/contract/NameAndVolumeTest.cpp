#include "contract/RequestTest.h"

#include <climits>

using namespace kiv::test;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace name_and_volume_test {
namespace {

constexpr int kIp = 0x0700000a; // 10.0.0.7

const std::vector<STNetSpkConfig> kSpeakers{Speaker(1), Speaker(100), Speaker(200)};

Request OneStep(const std::string& function, void (*call)(const unsigned char*, int))
{
    return {
        .name = function,
        .call = [call] { return call(kMac, kIp), 0; },
        .sent = function + "(" + kMacSent + ", 117440522)",
        .signature = "yyyyyyi",
        .failed = {MethodErrorLine("m_SetSpkVolume")},
        .before = {"I m_SetSpkVolume: [NAM_API] Mac[" + kMacLogged + "], IP[10.0.0.7]"},
        .frame = "m_SetSpkVolume",
    };
}

Request OfList(const std::string& function, void (*call)(const std::vector<STNetSpkConfig>&))
{
    return {
        .name = function,
        .call = [call] { return call(kSpeakers), 0; },
        .sent = function + "(" + BytesText(Records(kSpeakers)) + ")",
        .signature = "ay",
        .answered = [](int) { return Lines{"I TransformNetSpkList: free"}; },
        .failed =
            {"E TransformNetSpkList: [NAM_API] MethodCall(" + function + ") Error", "I TransformNetSpkList: free"},
        // A byte of 0x80 or more is printed as a negative number.
        .before =
            {"I TransformNetSpkList: [NAM_API] Speaker[0]: MAC[09:0a:0b:0c:0d:0e] CONFIG[134678021]",
             "I TransformNetSpkList: [NAM_API] Speaker[1]: MAC[6c:6d:6e:6f:70:71] CONFIG[1802135912]",
             "I TransformNetSpkList: [NAM_API] Speaker[2]: "
             "MAC[ffffffd0:ffffffd1:ffffffd2:ffffffd3:ffffffd4:ffffffd5] CONFIG[-808530484]"},
        .frame = "TransformNetSpkList",
    };
}

const Request kRequests[] = {
    {
        .name = "SetNetSpkName",
        .call = [] { return SetNetSpkName(kMac, kIp, "K\u00fcche"), 0; },
        .sent = "SetNetSpkName(" + kMacSent + ", 117440522, 'K\u00fcche')",
        .signature = "yyyyyyis",
        .failed = {MethodErrorLine("SetNetSpkName")},
        .before = {"D SetNetSpkName: [NAM_API] Mac[" + kMacLogged + "], SpkName[K\u00fcche], strlen(6)"},
    },
    {
        .name = "SetNetSpkVolume",
        .call = [] { return SetNetSpkVolume(kMac, kIp, 42), 0; },
        .sent = "SetNetSpkVolume(" + kMacSent + ", 117440522, 42)",
        .signature = "yyyyyyii",
        .failed = {MethodErrorLine("SetNetSpkVolume")},
        .first = {"I SetNetSpkVolume: [NAM_API] Enter"},
    },
    {
        .name = "GetNetSpkVolume",
        .call = [] { return GetNetSpkVolume(kMac, kIp), 0; },
        .sent = "GetNetSpkVolume(" + kMacSent + ", 117440522)",
        .signature = "yyyyyyi",
        .failed = {"E GetNetSpkVolume: MethodCall Error"},
        .first = {"D GetNetSpkVolume: [NAM_API] Enter"},
    },
    OneStep("IncreaseNetSpkVolume", IncreaseNetSpkVolume),
    OneStep("DecreaseNetSpkVolume", DecreaseNetSpkVolume),
    OneStep("ResetNetSpkVolume", ResetNetSpkVolume),
    {
        .name = "ResetAllNetSpkVolume",
        .call = [] { return ResetAllNetSpkVolume(), 0; },
        .sent = "ResetAllNetSpkVolume()",
        .answered = [](int) { return Lines{"I ResetAllNetSpkVolume: ResetAllNetSpkVolume done"}; },
        .failed = {MethodErrorLine("ResetAllNetSpkVolume")},
        .first = {"I ResetAllNetSpkVolume: [NAM_API] Enter"},
    },
    OfList("IncreaseNetSpkVolumeList", IncreaseNetSpkVolumeList),
    OfList("DecreaseNetSpkVolumeList", DecreaseNetSpkVolumeList),
    OfList("ResetNetSpkVolumeList", ResetNetSpkVolumeList),
    OfList("GetNetSpkVolumeList", GetNetSpkVolumeList),
};

INSTANTIATE_TEST_SUITE_P(NameAndVolume, RequestTest, ::testing::ValuesIn(kRequests), NameOf());

class NameAndVolumeTest : public ApiTest {};

// --- Names ---

TEST_F(NameAndVolumeTest, ANameOfAnyLengthIsSentAsItIs)
{
    // The last name has a million characters.
    for (const std::string& name :
         {std::string(), std::string("a'\"\\%s%n\n\t"), std::string("\u30ad\u30c3\u30c1\u30f3 \U0001f50a \uffff"),
          std::string(1'000'000, 'x')}) {
        ForgetTraffic();
        SetNetSpkName(kMac, kIp, name.c_str());

        const ServerCall call = control_.Calls().back();
        ASSERT_STREQ(g_variant_get_type_string(call.body.get()), "(yyyyyyis)");
        const char* sent = nullptr;
        g_variant_get_child(call.body.get(), 7, "&s", &sent);
        EXPECT_EQ(sent, name);
        EXPECT_EQ(
            platform_log::Count(
                "D SetNetSpkName: [NAM_API] Mac[" + kMacLogged + "], SpkName[" + name + "], strlen(" +
                std::to_string(name.size()) + ")"),
            1U);
        EXPECT_THAT(Errors("SetNetSpkName"), IsEmpty());
    }
}

// A call fails if no message can carry the name.
class UnsendableNameTest : public NameAndVolumeTest {
protected:
    void ExpectFailedCall(const std::string& name, const std::string& reason)
    {
        ForgetTraffic();
        bool isAnnounced = false;
        platform_log::OnLine([&](const LogLine& line) {
            if (line.function == "SetNetSpkName" &&
                line.text.ends_with("strlen(" + std::to_string(name.size()) + ")")) {
                isAnnounced = line.text.find("], SpkName[" + name + "], ") != std::string::npos;
                platform_log::Clear(); // the name may be long
            }
        });

        SetNetSpkName(kMac, kIp, name.c_str());

        EXPECT_TRUE(isAnnounced);
        ExpectLog({kEnter, ErrorLine("SetNetSpkName", reason), MethodErrorLine("SetNetSpkName")});
        ExpectNotCalled();
    }
};

TEST_F(UnsendableNameTest, OneThatIsNotUtf8)
{
    // A stray byte, a stray continuation byte, a missing one, an overlong form, a surrogate, and a code beyond Unicode.
    for (const char* name : {"\xff", "ab\x80", "K\xc3", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
        ExpectFailedCall(name, "a text that is not valid UTF-8");
    }
}

TEST_F(UnsendableNameTest, OneAsLongAsTheLongestMessage)
{
    ExpectFailedCall(std::string(2 * kLongestArray, 'x'), "arguments of over 128 MiB, which D-Bus does not allow");
}

TEST_F(NameAndVolumeTest, ANameNeedsASpeakerAndANameToBeSent)
{
    const std::pair<const unsigned char*, const char*> refused[] = {
        {nullptr, "name"}, {kMac, nullptr}, {nullptr, nullptr}};
    for (const auto& [mac, name] : refused) {
        ForgetTraffic();
        SetNetSpkName(mac, kIp, name);
        ExpectLog(PrologueLines("SetNetSpkName") + "E SetNetSpkName: (pMac == NULL || pSpkName == NULL) return");
        ExpectNothingAsked();
    }
    ExpectUnreached("SetNetSpkName", {}, [] { SetNetSpkName(nullptr, kIp, nullptr); });
}

// --- Volumes ---

TEST_F(NameAndVolumeTest, NumbersPassThroughUnchanged)
{
    for (const int number : {0, 101, -1, INT_MAX, INT_MIN}) {
        const std::string text = std::to_string(number);
        SetNetSpkVolume(kMac, kIp, number);
        EXPECT_EQ(Sent().back(), "SetNetSpkVolume(" + kMacSent + ", 117440522, " + text + ")");
        SetNetSpkVolume(kMac, number, 7);
        EXPECT_EQ(Sent().back(), "SetNetSpkVolume(" + kMacSent + ", " + text + ", 7)");
        GetNetSpkVolume(kMac, number);
        EXPECT_EQ(Sent().back(), "GetNetSpkVolume(" + kMacSent + ", " + text + ")");
        SetNetSpkName(kMac, number, "Hall");
        EXPECT_EQ(Sent().back(), "SetNetSpkName(" + kMacSent + ", " + text + ", 'Hall')");
        IncreaseNetSpkVolume(kMac, number);
        EXPECT_EQ(Sent().back(), "IncreaseNetSpkVolume(" + kMacSent + ", " + text + ")");
    }
}

// An octet of 128 or more is printed as a negative number that is converted to unsigned.
TEST_F(NameAndVolumeTest, AddressesAreLoggedOctetByOctet)
{
    const std::pair<unsigned, const char*> addresses[] = {
        {0x0700000a, "10.0.0.7"},
        {0x0100a8c0, "4294967232.4294967208.0.1"},
        {0x817f80ff, "4294967295.4294967168.127.4294967169"},
        {0, "0.0.0.0"},
    };
    for (const auto& [address, text] : addresses) {
        platform_log::Clear();
        DecreaseNetSpkVolume(kMac, static_cast<int>(address));
        EXPECT_EQ(platform_log::Count("I m_SetSpkVolume: [NAM_API] Mac[" + kMacLogged + "], IP[" + text + "]"), 1U)
            << text;
    }
}

TEST_F(NameAndVolumeTest, AStepNeedsASpeaker)
{
    for (const auto step : {IncreaseNetSpkVolume, DecreaseNetSpkVolume, ResetNetSpkVolume}) {
        ForgetTraffic();
        step(nullptr, kIp);
        ExpectLog(PrologueLines("m_SetSpkVolume") + "E m_SetSpkVolume: (pMac == NULL) return");
        ExpectNothingAsked();
    }
    ExpectUnreached("m_SetSpkVolume", {}, [] { ResetNetSpkVolume(nullptr, kIp); });
}

TEST_F(NameAndVolumeTest, AVolumeIsNeitherSetNorAskedForWithoutASpeakerWhichIsNotLogged)
{
    const Lines enterSet = {"I SetNetSpkVolume: [NAM_API] Enter"};
    SetNetSpkVolume(nullptr, kIp, 5);
    ExpectLog(enterSet + StartLine("SetNetSpkVolume") + kEnter);
    ExpectNothingAsked();

    const Lines enterGet = {"D GetNetSpkVolume: [NAM_API] Enter"};
    ForgetTraffic();
    GetNetSpkVolume(nullptr, kIp);
    ExpectLog(enterGet + StartLine("GetNetSpkVolume") + kEnter);
    ExpectNothingAsked();
}

TEST_F(NameAndVolumeTest, TheSpeakerOfAVolumeToSetIsNotLookedAtBeforeTheServerIsReached)
{
    ExpectUnreached(
        "SetNetSpkVolume", {"I SetNetSpkVolume: [NAM_API] Enter"}, [] { SetNetSpkVolume(nullptr, kIp, 5); });
}

TEST_F(NameAndVolumeTest, TheSpeakerOfAVolumeToGetIsNotLookedAtBeforeTheServerIsReached)
{
    ExpectUnreached("GetNetSpkVolume", {"D GetNetSpkVolume: [NAM_API] Enter"}, [] { GetNetSpkVolume(nullptr, kIp); });
}

// --- Volumes of a list ---

struct ListFunction {
    const char* name;
    void (*call)(const std::vector<STNetSpkConfig>&);

    friend void PrintTo(const ListFunction& function, std::ostream* out) { *out << function.name; }
};

const ListFunction kListFunctions[] = {
    {"IncreaseNetSpkVolumeList", IncreaseNetSpkVolumeList},
    {"DecreaseNetSpkVolumeList", DecreaseNetSpkVolumeList},
    {"ResetNetSpkVolumeList", ResetNetSpkVolumeList},
    {"GetNetSpkVolumeList", GetNetSpkVolumeList},
};

class VolumeListTest : public ApiTest, public ::testing::WithParamInterface<ListFunction> {
protected:
    std::vector<unsigned char> SentList(const std::vector<STNetSpkConfig>& list)
    {
        GetParam().call(list);
        const ServerCall call = control_.Calls().back();
        EXPECT_EQ(call.method, GetParam().name);
        return Bytes(call);
    }
};

TEST_P(VolumeListTest, AnEmptyListIsSentToo)
{
    EXPECT_THAT(SentList({}), IsEmpty());
    ExpectLog(Logged("TransformNetSpkList", {}, {"I TransformNetSpkList: free"}));
}

TEST_P(VolumeListTest, EachSpeakerIsLogged)
{
    const std::vector<STNetSpkConfig> list(2'000, Speaker(0x9c));

    EXPECT_EQ(SentList(list), Records(list));

    const Lines own = Own("TransformNetSpkList");
    ASSERT_THAT(own, SizeIs(2'001));
    EXPECT_EQ(
        own[1'999], "I TransformNetSpkList: [NAM_API] Speaker[1999]: "
                    "MAC[ffffffa4:ffffffa5:ffffffa6:ffffffa7:ffffffa8:ffffffa9] CONFIG[-1549622880]");
}

TEST_P(VolumeListTest, AServerThatGoesBeforeTheCallIsAFailedCall)
{
    const std::string speaker = "I TransformNetSpkList: [NAM_API] Speaker[0]: MAC[09:0a:0b:0c:0d:0e] CONFIG[134678021]";
    AtLine(speaker, [&] { KillServer(); });

    GetParam().call({Speaker(1)});

    ExpectLog(
        PrologueLines("TransformNetSpkList") +
        Lines{
            speaker, kAbsentLine,
            "E TransformNetSpkList: [NAM_API] MethodCall(" + std::string(GetParam().name) + ") Error",
            "I TransformNetSpkList: free"});
}

INSTANTIATE_TEST_SUITE_P(Functions, VolumeListTest, ::testing::ValuesIn(kListFunctions), NameOf());

// Only one of the four functions is tested, because so many log lines take a while.
TEST_F(NameAndVolumeTest, AListThatTheBusCannotCarryIsAFailedCallOnceEachSpeakerIsLogged)
{
    const std::vector<STNetSpkConfig> list(kLongestArray / 86 + 1);
    std::size_t speakers = 0;
    platform_log::OnLine([&](const LogLine& line) {
        if (line.text.starts_with("[NAM_API] Speaker[" + std::to_string(speakers) + "]")) {
            ++speakers;
            platform_log::Clear(); // the lines would take much memory
        }
    });

    GetNetSpkVolumeList(list);

    EXPECT_EQ(speakers, list.size());
    ExpectLog(
        {kEnter, TooLongLine("GetNetSpkVolumeList"),
         "E TransformNetSpkList: [NAM_API] MethodCall(GetNetSpkVolumeList) Error", "I TransformNetSpkList: free"});
    ExpectNotCalled();
}

} // namespace
} // namespace name_and_volume_test
