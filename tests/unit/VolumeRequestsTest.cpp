#include "src/settings/VolumeRequests.h"

#include "contract/ApiTest.h"

#include <climits>

using namespace kiv::test;
using kiv::settings::m_SetSpkVolume;
using kiv::settings::TransformNetSpkList;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class VolumeRequestsTest : public ApiTest {};

TEST_F(VolumeRequestsTest, AnyStepButUpAndDownIsAReset)
{
    const struct {
        int op;
        const char* method;
    } steps[] = {
        {0, "IncreaseNetSpkVolume"}, {1, "DecreaseNetSpkVolume"},    {2, "ResetNetSpkVolume"},
        {5, "ResetNetSpkVolume"},    {-1, "ResetNetSpkVolume"},      {INT_MAX, "ResetNetSpkVolume"},
        {256, "ResetNetSpkVolume"},  {INT_MIN, "ResetNetSpkVolume"},
    };
    for (const auto& [op, method] : steps) {
        ForgetTraffic();
        m_SetSpkVolume(kMac, 0x0700000a, op);
        EXPECT_EQ(SentMessages().back().member, method) << op;
        EXPECT_EQ(SentMessages().back().signature, "yyyyyyi");
        ExpectLog(Logged("m_SetSpkVolume", {"I m_SetSpkVolume: [NAM_API] Mac[" + kMacLogged + "], IP[10.0.0.7]"}, {}));
    }
}

TEST_F(VolumeRequestsTest, AListGoesToTheMethodThatIsNamed)
{
    const std::vector<STNetSpkConfig> list{Speaker(0), Speaker(0x7c)};

    TransformNetSpkList(list, "GetNetSpkVolumeList");

    EXPECT_THAT(control_.Methods(), ElementsAre("check_dbus_connection", "GetNetSpkVolumeList"));
    const auto bytes = Bytes(control_.Calls().back());
    ASSERT_EQ(bytes.size(), 172U);
    EXPECT_EQ(std::memcmp(bytes.data(), list.data(), 172), 0);
    // The bytes of a MAC address are logged as signed numbers.
    ExpectLog(Logged(
        "TransformNetSpkList",
        {"I TransformNetSpkList: [NAM_API] Speaker[0]: MAC[08:09:0a:0b:0c:0d] CONFIG[117835012]",
         "I TransformNetSpkList: [NAM_API] Speaker[1]: "
         "MAC[ffffff84:ffffff85:ffffff86:ffffff87:ffffff88:ffffff89] CONFIG[-2088599168]"},
        {"I TransformNetSpkList: free"}));
}

TEST_F(VolumeRequestsTest, AListMayGoToAMethodThatTheServerDoesNotHave)
{
    TransformNetSpkList({}, "Other");
    EXPECT_THAT(
        Own("TransformNetSpkList"),
        ElementsAre("E TransformNetSpkList: [NAM_API] MethodCall(Other) Error", "I TransformNetSpkList: free"));
}

TEST_F(VolumeRequestsTest, AnEmptyListIsSent)
{
    TransformNetSpkList({}, "ResetNetSpkVolumeList");
    EXPECT_EQ(control_.Calls().back().method, "ResetNetSpkVolumeList");
    EXPECT_THAT(Bytes(control_.Calls().back()), IsEmpty());
    EXPECT_THAT(Own("TransformNetSpkList"), ElementsAre("I TransformNetSpkList: free"));
}

} // namespace
