#include "simulator/CallRecord.h"

#include <gtest/gtest.h>

namespace kiv::simulator {
namespace {

TEST(CallRecordTest, KeepsTheNewestCalls)
{
    CallRecord record(2);
    for (const std::string method : {"First", "Second", "Third"}) {
        record.Add({":1.1", method, 0, nullptr});
    }
    ASSERT_EQ(record.Calls().size(), 2U);
    EXPECT_EQ(record.Calls().front().method, "Second");
    EXPECT_EQ(record.FirstNumber(), 2U);
}

TEST(CallRecordTest, CountsFromOneAgainOnceForgotten)
{
    CallRecord record(1);
    record.Add({":1.1", "First", 0, nullptr});
    record.Add({":1.1", "Second", 0, nullptr});
    record.Forget();
    EXPECT_TRUE(record.Calls().empty());
    EXPECT_EQ(record.FirstNumber(), 1U);
}

} // namespace
} // namespace kiv::simulator
