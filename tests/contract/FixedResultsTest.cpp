#include "support/BusTest.h"

using namespace kiv::test;
using ::testing::IsEmpty;

namespace {

struct EntryPoint {
    const char* name;
    int (*function)(...);
    int result;
    Lines lines;
};

#define RETURNS_ZERO(name) \
    {                      \
#name, name, 0, {} \
    }

// This is a function, because the texts must exist when the tests are named.
const std::vector<EntryPoint>& EntryPoints()
{
    static const std::vector<EntryPoint> entryPoints = {
        {"SPK_IsConnectToTV", SPK_IsConnectToTV, 0, {"I SPK_IsConnectToTV: SPK_IsConnectToTV return false"}},
        {"GetLastConnectSatIdx", GetLastConnectSatIdx, -1, {}},
        {"get_size_of_spk_list_info_s",
         get_size_of_spk_list_info_s,
         1086,
         {"I get_size_of_spk_list_info_s: spk list size =1086"}},
        {"get_size_of_spk_info_s", get_size_of_spk_info_s, 183, {"I get_size_of_spk_info_s: spk size =183"}},
        RETURNS_ZERO(SPK_NotifySpkVolumeTable),
        RETURNS_ZERO(SPK_NotifyAudioCtrl),
        RETURNS_ZERO(SPK_GetGroupInfo),
        RETURNS_ZERO(SPK_GetSelfAndAllCandidateNodeInfo),
        RETURNS_ZERO(SPK_GetMacFromDi),
        RETURNS_ZERO(SPK_GetSourceExtraNodeInfo),
        RETURNS_ZERO(SPK_SetBTModeDelay),
        RETURNS_ZERO(SPK_getSelfAndAllNodeInfo),
        RETURNS_ZERO(SPK_GetSelfAndAllNodeInfo),
        RETURNS_ZERO(SPK_SendCalData),
        RETURNS_ZERO(SPK_UnGroupHts),
        RETURNS_ZERO(SPK_GetGroupHts),
        RETURNS_ZERO(SPK_SetHtsVolume),
        RETURNS_ZERO(SPK_SetHtsMute),
        RETURNS_ZERO(SPK_GetHtsVolume),
        RETURNS_ZERO(SPK_GetHtsMute),
        RETURNS_ZERO(SPK_NotifySounbarSettings),
        RETURNS_ZERO(SPK_getAllNodeInfo),
        RETURNS_ZERO(SPK_GetAllNodeInfo),
        RETURNS_ZERO(SPK_GetNumberOfNode),
        RETURNS_ZERO(SPK_NotifyPlayStatus),
        RETURNS_ZERO(SPK_NotifyMasterStatusLED),
        RETURNS_ZERO(SPK_NotifyAlarmVolume),
        RETURNS_ZERO(SPK_NotifySleepMode),
        RETURNS_ZERO(SPK_ChangeVolume),
        RETURNS_ZERO(SPK_NotifySpkVolume),
        RETURNS_ZERO(SPK_NotifySpkMute),
        RETURNS_ZERO(SPK_SetKivMode_singleTV),
        RETURNS_ZERO(SPK_SetKivMode_Lastmemory),
        RETURNS_ZERO(SPK_SetKivMode),
        RETURNS_ZERO(SPK_SetSpkProperty),
        RETURNS_ZERO(SPK_UnGroup),
        RETURNS_ZERO(SPK_SetMultiSpkGroup),
        RETURNS_ZERO(SPK_SetMultiChGroup),
        RETURNS_ZERO(SPK_SetMute),
        RETURNS_ZERO(SPK_SetVolume),
    };
    return entryPoints;
}

class FixedResultsTest : public BusTest {
protected:
    static void ExpectFixedResults()
    {
        ASSERT_EQ(EntryPoints().size(), 40U);
        char buffer[] = "unread";
        for (const EntryPoint& entryPoint : EntryPoints()) {
            SCOPED_TRACE(entryPoint.name);
            ExpectFixed(entryPoint, [&] { return entryPoint.function(); });
            ExpectFixed(entryPoint, [&] { return entryPoint.function(1); });
            ExpectFixed(entryPoint, [&] { return entryPoint.function(nullptr, -1, 0.5); });
            ExpectFixed(entryPoint, [&] { return entryPoint.function(buffer, 1L, 2.0, 3, 4, 5, 6, 7, 8, buffer); });
        }
    }

    template <typename Call>
    static void ExpectFixed(const EntryPoint& entryPoint, Call call)
    {
        platform_log::Clear();
        EXPECT_EQ(call(), entryPoint.result);
        ExpectLog(entryPoint.lines);
    }
};

TEST_F(FixedResultsTest, WithoutAServerAndWithTheDeviceFeatureUnread)
{
    trace_->Clear();
    ExpectFixedResults();
    EXPECT_EQ(feature::Reads(), 0);
    EXPECT_FALSE(g_GetSystemVal);
    EXPECT_THAT(trace_->Messages(), IsEmpty());
}

TEST_F(FixedResultsTest, OnADisabledDevice)
{
    feature::Set(false);
    ASSERT_TRUE(GetWhetherKivDisabled());
    trace_->Clear();
    ExpectFixedResults();
    EXPECT_EQ(feature::Reads(), 1);
    EXPECT_THAT(trace_->Messages(), IsEmpty());
}

TEST_F(FixedResultsTest, WhileConnected)
{
    StartServer();
    Connect();
    trace_->Clear();
    ExpectFixedResults();
    EXPECT_EQ(feature::Reads(), 1);
    EXPECT_THAT(trace_->Messages(), IsEmpty());
}

TEST_F(FixedResultsTest, RecordSizesAreThoseOfTheRecords)
{
    EXPECT_EQ(get_size_of_spk_list_info_s(), static_cast<int>(sizeof(spk_list_info_s)));
    EXPECT_EQ(get_size_of_spk_info_s(), static_cast<int>(sizeof(spk_info_s)));
}

} // namespace
