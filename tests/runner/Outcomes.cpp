#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>

// Tests with all the ways in which a test can end.
namespace {

bool g_isFresh = true;

class OutcomeTest : public ::testing::Test {
protected:
    OutcomeTest()
    {
        EXPECT_TRUE(g_isFresh) << "another test ran in this process";
        g_isFresh = false;
    }
};

TEST_F(OutcomeTest, Passes)
{
    std::cout << "what a good test prints" << std::endl;
}

TEST_F(OutcomeTest, PassesToo) {}

TEST_F(OutcomeTest, Fails)
{
    std::cout << "what a bad test prints" << std::endl;
    EXPECT_EQ(1, 2);
}

TEST_F(OutcomeTest, IsSkipped)
{
    GTEST_SKIP() << "the reason";
}

TEST_F(OutcomeTest, IsKilled)
{
    std::raise(SIGKILL);
}

TEST_F(OutcomeTest, Exits)
{
    std::exit(0);
}

// The program's own limit ends it.
TEST_F(OutcomeTest, Hangs)
{
    pause();
}

// Only the parent's limit ends it.
TEST_F(OutcomeTest, HangsWithoutAlarm)
{
    std::signal(SIGALRM, SIG_IGN);
    pause();
}

TEST_F(OutcomeTest, FailsAtTheEndOfTheProcess)
{
    std::atexit([] { _exit(3); });
}

TEST_F(OutcomeTest, Leaks)
{
    [[maybe_unused]] char* volatile lost = new char[100];
    lost = nullptr;
}

TEST_F(OutcomeTest, DISABLED_NeverRuns)
{
    std::exit(4);
}

class ValueTest : public ::testing::TestWithParam<int> {};

TEST_P(ValueTest, FailsIfOdd)
{
    EXPECT_EQ(GetParam() % 2, 0);
}

INSTANTIATE_TEST_SUITE_P(Numbers, ValueTest, ::testing::Range(0, 6));

} // namespace
