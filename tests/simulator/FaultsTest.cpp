#include "simulator/Faults.h"

#include "simulator/SimulatorTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace kiv::simulator::faults_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class FaultsTest : public ::testing::Test {
protected:
    void Set(const std::string& description) { faults_.Set("Method", Value(description).get()); }

    std::string Refusal(const std::string& description, const std::string& method = "Method")
    {
        try {
            faults_.Set(method, Value(description).get());
        } catch (const BusError& error) {
            EXPECT_EQ(error.Name(), "org.freedesktop.DBus.Error.InvalidArgs");
            return error.what();
        }
        return "accepted";
    }

    // Returns which of the next calls a fault with the error E.E affects.
    std::vector<bool> Affected(std::size_t calls)
    {
        std::vector<bool> affected(calls);
        for (std::size_t i = 0; i < calls; ++i) {
            affected[i] = faults_.Next("Method").error == "E.E";
        }
        return affected;
    }

    Faults faults_{{"Method", "Other"}, {"Method"}};
};

TEST_F(FaultsTest, AffectsItsMethodOnly)
{
    Set("{'error': <'E.E'>, 'message': <'why'>, 'delay': <uint32 5>}");
    const Fault fault = faults_.Next("Method");
    EXPECT_EQ(fault.error, "E.E");
    EXPECT_EQ(fault.message, "why");
    EXPECT_EQ(fault.delay.count(), 5);
    EXPECT_EQ(faults_.Next("Other").error, "");
}

TEST_F(FaultsTest, CountEndsIt)
{
    Set("{'error': <'E.E'>, 'count': <uint32 2>}");
    EXPECT_THAT(Affected(4), ElementsAre(true, true, false, false));
}

TEST_F(FaultsTest, EveryNthIsAffected)
{
    Set("{'error': <'E.E'>, 'every': <uint32 3>}");
    EXPECT_THAT(Affected(7), ElementsAre(false, false, true, false, false, true, false));
}

TEST_F(FaultsTest, CountCountsAffectedCalls)
{
    Set("{'error': <'E.E'>, 'every': <uint32 2>, 'count': <uint32 2>}");
    EXPECT_THAT(Affected(7), ElementsAre(false, true, false, true, false, false, false));
}

TEST_F(FaultsTest, ALaterFaultReplacesTheEarlier)
{
    Set("{'error': <'E.E'>}");
    Set("{'silent': <true>}");
    EXPECT_THAT(Affected(1), ElementsAre(false));
    EXPECT_TRUE(faults_.Next("Method").silent);
    faults_.Clear();
    EXPECT_FALSE(faults_.Next("Method").silent);
}

TEST_F(FaultsTest, AReplyIsATupleHoweverItIsWritten)
{
    for (const std::string reply : {"<(1, 'x')>", "<<(1, 'x')>>", "<\"(1, 'x')\">", "<<\"(1, 'x')\">>"}) {
        Set("{'reply': " + reply + "}");
        EXPECT_TRUE(g_variant_equal(faults_.Next("Method").reply.get(), Value("(1, 'x')").get())) << reply;
    }
    Set("{'reply': <'()'>}");
    EXPECT_TRUE(g_variant_equal(faults_.Next("Method").reply.get(), Value("()").get()));
}

TEST_F(FaultsTest, BytesAreAReply)
{
    Set("{'bytes': <[byte 1, 2]>}");
    EXPECT_TRUE(g_variant_equal(faults_.Next("Method").reply.get(), Value("([byte 1, 2],)").get()));
}

TEST_F(FaultsTest, MoreBytesLeaveTheProperAnswer)
{
    Set("{'append': <[byte 1, 2]>}");
    const Fault fault = faults_.Next("Method");
    EXPECT_THAT(fault.append, ElementsAre(1, 2));
    EXPECT_FALSE(fault.HasOutcome());
}

TEST_F(FaultsTest, AFaultOfAllMethodsYieldsToTheirOwn)
{
    faults_.Set("*", Value("{'error': <'A.A'>}").get());
    Set("{'error': <'E.E'>}");
    EXPECT_EQ(faults_.Next("Method").error, "E.E");
    EXPECT_EQ(faults_.Next("Other").error, "A.A");
    faults_.Clear("Method");
    EXPECT_EQ(faults_.Next("Method").error, "A.A");
    faults_.Clear("*");
    EXPECT_EQ(faults_.Next("Method").error, "");
}

TEST_F(FaultsTest, RefusesWhatMakesNoSense)
{
    EXPECT_EQ(
        Refusal("{'exit': <true>}", "Nonsense"), "the server has no method \"Nonsense\"; known are Method, Other");
    EXPECT_EQ(Refusal("{'exit': <true>}", "Methud"), "the server has no method \"Methud\"; did you mean Method?");
    EXPECT_EQ(Refusal("{'every': <uint32 0>}"), "\"every\" must be at least 1, got 0");
    EXPECT_EQ(Refusal("{'count': <uint32 0>}"), "\"count\" must be at least 1, got 0");
    const std::map<std::string, std::string> reasons = {
        {"{'colour': <1>}", R"(no fault key "colour")"},
        {"{'error': <1>}", R"("error" has type "s", not "i")"},
        {"{'error': <'no name'>}", R"("error" must be a D-Bus error name such as org.example.Bad, got "no name")"},
        {"{'message': <'alone'>}", R"(must stand with "error")"},
        {"{'delay': <-1>}", R"("delay" has type "u", not "i")"},
        {"{'silent': <uint32 1>}", R"("silent" has type "b", not "u")"},
        {"{'bytes': <'01'>}", R"("bytes" has type "ay", not "s")"},
        {"{'reply': <7>}", R"("reply" must be a tuple such as (1, 'x'), got a value of type "i")"},
        {"{'reply': <'(1'>}", R"("reply" must be a value in GVariant text form, got "(1": )"},
        {"{'reply': <'(just 1,)'>}", "(mi)"},
        {"{'reply': <'(<just 1>,)'>}", "mi"},
        {"{'reply': <'((),)'>}", "Empty structures"},
    };
    for (const auto& [description, reason] : reasons) {
        EXPECT_THAT(Refusal(description), HasSubstr(reason)) << description;
    }
}

TEST_F(FaultsTest, RefusesTwoOutcomes)
{
    for (const std::string fault :
         {"{'bytes': <[byte 1]>, 'reply': <(1,)>}", "{'append': <[byte 1]>, 'silent': <true>}",
          "{'silent': <true>, 'exit': <true>}", "{'error': <'E.E'>, 'reply': <(1,)>}"}) {
        EXPECT_EQ(
            Refusal(fault), "a fault must have at most one of the keys error, silent, reply, bytes, append and exit")
            << fault;
    }
}

TEST_F(FaultsTest, RefusesWhatHasNoEffect)
{
    for (const std::string fault :
         {"@a{sv} {}", "{'every': <uint32 2>, 'count': <uint32 1>}", "{'append': <@ay []>}"}) {
        EXPECT_THAT(Refusal(fault), HasSubstr("must have one of the keys error, silent, ")) << fault;
    }
    EXPECT_EQ(Refusal("{'silent': <false>}"), "\"silent\" must be true, or left out, got false");
    EXPECT_EQ(Refusal("{'exit': <false>}"), "\"exit\" must be true, or left out, got false");
    EXPECT_THAT(
        Refusal("{'append': <[byte 1]>}", "Other"), HasSubstr("needs a method whose answer has bytes, got Other"));
    EXPECT_EQ(Refusal("{'append': <[byte 1]>}", "*"), "accepted");
    EXPECT_EQ(Refusal("{'delay': <uint32 0>}"), "accepted");
}

TEST_F(FaultsTest, ARefusedFaultChangesNothing)
{
    Set("{'error': <'E.E'>}");
    Refusal("{'silent': <true>, 'exit': <true>}");
    EXPECT_THAT(Affected(1), ElementsAre(true));
}

} // namespace
} // namespace kiv::simulator::faults_test
