#include "EventTest.h"

#include <cstdlib>
#include <new>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

// A program of its own, because it replaces the global allocation functions.

namespace {

// Which allocation of this thread fails next: 1 is the very next one, 0 none.
thread_local int g_failing = 0;

} // namespace

// Not inlined: where they are, gcc takes the pair of them for one of malloc() and delete.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    if (g_failing > 0 && --g_failing == 0) {
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

namespace {

class AllocationTest : public EventTest, public ::testing::WithParamInterface<int> {};

// Between its subscription and its last line a registration allocates its entry and nothing else.
TEST_P(AllocationTest, ARegistrationWithoutMemoryIsDroppedWithoutAWord)
{
    char hall[] = "hall";
    StartAndConnect();
    AtLine(kEnter, [&] { // of the query for the id
        AtLine(kEnter, [&] { g_failing = GetParam(); });
    });

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, hall), 0);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            Lines{"I register_atmos_support_cb: register vconf cb register_atmos_support_cb"} +
            AnsweredLines("register_atmos_support_cb") +
            Lines{"I register_atmos_support_cb: cregister_atmos_support_cb)"}));
    EXPECT_EQ(std::exchange(g_failing, 0), 0);
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), IsEmpty());
    EXPECT_EQ(platform_log::Count("I NamNotifySubscriber: nothing to call"), 1U);

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, hall), 0);
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), ElementsAre("f(1, hall)"));
}

INSTANTIATE_TEST_SUITE_P(Nth, AllocationTest, ::testing::Values(1, 2));

} // namespace
