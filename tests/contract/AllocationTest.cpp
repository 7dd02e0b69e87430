#include "contract/EventTest.h"
#include "contract/FailingMemory.h"

#include <cstdint>
#include <cstring>
#include <utility>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class AllocationTest : public Connected<EventTest> {};

// Between its subscription and its last line, a registration allocates only its entry.
TEST_F(AllocationTest, ARegistrationWithoutMemoryIsDroppedWithoutAWord)
{
    char hall[] = "hall";
    AtLine(kEnter, [&] { // of the query for the id
        AtLine(kEnter, [&] { g_untilFailure = 1; });
    });

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, hall), 0);

    ExpectLog(
        Lines{"I register_atmos_support_cb: register vconf cb register_atmos_support_cb"} +
        AnsweredLines("register_atmos_support_cb") + "I register_atmos_support_cb: cregister_atmos_support_cb)");
    EXPECT_EQ(std::exchange(g_untilFailure, 0), 0);
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), IsEmpty());
    EXPECT_EQ(platform_log::Count("I NamNotifySubscriber: nothing to call"), 1U);

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, hall), 0);
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), ElementsAre("f(1, hall)"));
}

TEST_F(AllocationTest, ASubscriptionWithoutMemoryIsAnErrorLineAndZero)
{
    const std::string line = "D SubscribeNamServiceCallback: a subscriber's name subscribe callback successful";
    AtLine(line, [] { g_untilFailure = 1; });

    EXPECT_EQ(SubscribeNamServiceCallback("a subscriber's name", Subscriber<'s'>), 0);

    EXPECT_EQ(std::exchange(g_untilFailure, 0), 0);
    ExpectLog(
        {"D SubscribeNamServiceCallback: Enter", StartLine("SubscribeNamServiceCallback"), kEnter, line,
         "E SubscribeNamServiceCallback: [NAM_API] no memory for the subscriber a subscriber's name"});
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
}

// Three records, and not enough memory in one piece: a list asks for room for one, two and four records in turn.
class GrowingListTest : public Connected<EventTest>, public ::testing::WithParamInterface<std::size_t> {
protected:
    template <typename Record>
    static void LimitAtLine(const std::string& shortForm)
    {
        AtLine(shortForm, [] { g_largest = GetParam() * sizeof(Record); });
    }

    template <typename Call>
    static void ExpectNoMemory(Call call)
    {
        EXPECT_THROW(call(), std::bad_alloc);
        EXPECT_NE(std::exchange(g_largest, SIZE_MAX), SIZE_MAX);
    }

    void SetReply(const std::string& method, std::size_t recordSize)
    {
        control_.SetReply(method, std::vector<unsigned char>(3 * recordSize));
    }
};

TEST_P(GrowingListTest, ThrowsWithTheRecordsThatItTook)
{
    SetReply("GetNetSpkListInfo", sizeof(STNetSpkListInfo));
    LimitAtLine<STNetSpkListInfo>("D GetNetSpkListInfo: [NAM_API] elenum[3258], sizeof(STNetSpkListInfo)[1086]");
    std::vector<STNetSpkListInfo> lists;
    ExpectNoMemory([&] { GetNetSpkListInfo(lists); });
    EXPECT_EQ(lists.size(), GetParam());

    SetReply("GetNetSpkNodeList", sizeof(CNetSpkNodeInfo));
    LimitAtLine<CNetSpkNodeInfo>("D GetNetSpkNodeList: [NAM_API] elenum[402], sizeof(CNetSpkNodeInfo)[134]");
    std::vector<CNetSpkNodeInfo> nodes;
    ExpectNoMemory([&] { GetNetSpkNodeList(nodes); });
    EXPECT_EQ(nodes.size(), GetParam());

    EXPECT_EQ(GetNetSpkListInfo(lists), 3);
    EXPECT_EQ(GetNetSpkNodeList(nodes), 3);
}

TEST_P(GrowingListTest, ThrowsAndLeavesThePlainArrayAlone)
{
    SetReply("GetNetSpkListInfo", sizeof(STNetSpkListInfo));
    LimitAtLine<STNetSpkListInfo>("D GetNetSpkListInfo: [NAM_API] elenum[3258], sizeof(STNetSpkListInfo)[1086]");
    STNetSpkListInfo lists[3];
    std::memset(lists, 0xee, sizeof lists);
    STNetSpkListInfo untouched[3];
    std::memset(untouched, 0xee, sizeof untouched);
    ExpectNoMemory([&] { getNetSpkListInfo(lists); });
    EXPECT_EQ(std::memcmp(lists, untouched, sizeof lists), 0);
}

TEST_P(GrowingListTest, ThrowsWithTheActiveSpeakersThatItTook)
{
    std::vector<unsigned char> payload(155 + 3 * sizeof(spk_info_s));
    payload[151] = 3;
    control_.SetReply("GetActiveNetSpkInfo", payload);
    AtLine(kEnter, [] { // of the query for the id
        LimitAtLine<spk_info_s>(kEnter);
    });
    char name[NETSPK_LIST_NAME_LEN];
    char type[NETSPK_SPEAKER_TYPE_LEN + 1];
    std::vector<spk_info_s> speakers;
    ExpectNoMemory([&] { GetActiveNetSpkInfo(name, type, speakers); });
    EXPECT_EQ(speakers.size(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Room, GrowingListTest, ::testing::Values(0, 1, 2));

} // namespace
