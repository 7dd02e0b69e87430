#include "support/WarmUp.h"

#include <execinfo.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

std::string g_message;

// Ends a test that hangs, and prints where. The runner would end it later without any output.
void EndHangingTest(int /*signal*/)
{
    const auto tell = [](std::string_view text) {
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    };
    tell(g_message);
    void* frames[64];
    backtrace_symbols_fd(frames, backtrace(frames, 64), STDERR_FILENO);
    _exit(EXIT_FAILURE);
}

class LimitOfEachTest : public ::testing::EmptyTestEventListener {
public:
    // The limit is in seconds.
    explicit LimitOfEachTest(unsigned limit) : limit_(limit) { std::signal(SIGALRM, EndHangingTest); }

private:
    void OnTestStart(const ::testing::TestInfo& test) override
    {
        g_message = std::string(test.test_suite_name()) + "." + test.name() + " hangs: it has not ended after " +
                    std::to_string(limit_) + " s. The calls of the thread that noticed it:\n";
        alarm(limit_);
    }

    const unsigned limit_;
};

// Prints the version of GLib that is loaded. The programs may be built with another.
class GlibVersion : public ::testing::Environment {
    void SetUp() override
    {
        std::cout << "GLib: " << glib_major_version << '.' << glib_minor_version << '.' << glib_micro_version
                  << std::endl;
    }
};

// --fork runs each test in a child, because a test must find the library as a host finds it. The children inherit what
// the start of the program has cost. This is the exit code of a child whose test passed; as it is not 0, tested code
// that ends the process does not pass.
constexpr int kPassed = 101;
// This is the exit code of a child whose test was skipped, and of the program if that is the worst that happened. CTest
// knows it.
constexpr int kSkipped = 77;

pid_t g_child = 0;

void KillChild(int /*signal*/)
{
    kill(g_child, SIGKILL);
}

// Returns the tests of the filter and of the shard.
std::vector<std::string> SelectedTests()
{
    // GoogleTest selects them before it lists them. The list itself has the tests of all shards, so it is dropped.
    ::testing::GTEST_FLAG(list_tests) = true;
    std::FILE* const output = std::exchange(stdout, std::fopen("/dev/null", "w"));
    const int code = RUN_ALL_TESTS();
    std::fclose(std::exchange(stdout, output));
    ::testing::GTEST_FLAG(list_tests) = false;
    // The children select their test by the filter alone.
    unsetenv("GTEST_TOTAL_SHARDS");
    unsetenv("GTEST_SHARD_INDEX");

    std::vector<std::string> tests;
    const auto& all = *::testing::UnitTest::GetInstance();
    for (int i = 0; code == 0 && i < all.total_test_suite_count(); ++i) {
        const auto& suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            const auto& test = *suite.GetTestInfo(j);
            if (test.should_run()) {
                tests.push_back(std::string(suite.name()) + "." + test.name());
            }
        }
    }
    return tests;
}

std::string Describe(int status)
{
    if (WIFSIGNALED(status)) {
        return "ended by signal " + std::to_string(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == kSkipped ? "skipped" : "ended with code " + std::to_string(WEXITSTATUS(status));
}

// Returns the program's exit code, or nothing in a child, which has to run the test that the filter now names. Prints
// the output of the tests that did not pass.
std::optional<int> ForkForEachTest(unsigned limit)
{
    if (KIV_EMULATED) {
        kiv::test::WarmUp();
    }
    const std::vector<std::string> tests = SelectedTests();
    std::signal(SIGALRM, KillChild); // where a child does not end itself
    std::size_t passed = 0;
    std::size_t skipped = 0;
    for (const std::string& test : tests) {
        std::fflush(nullptr); // otherwise the child would print the buffered output, too
        const int output = memfd_create("output", MFD_CLOEXEC);
        g_child = output == -1 ? -1 : fork();
        if (g_child == -1) {
            std::perror("cannot start a test");
            return EXIT_FAILURE;
        }
        if (g_child == 0) {
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
            close(output);
            ::testing::GTEST_FLAG(filter) = test;
            return std::nullopt;
        }
        int status = 0;
        alarm(limit + 10);
        waitpid(g_child, &status, 0);
        alarm(0);
        if (WIFEXITED(status) && WEXITSTATUS(status) == kPassed) {
            ++passed;
        } else {
            skipped += WIFEXITED(status) && WEXITSTATUS(status) == kSkipped ? 1 : 0;
            std::ifstream text("/proc/self/fd/" + std::to_string(output));
            std::cout << test << ": " << Describe(status) << ". Its output:\n"
                      << std::string(std::istreambuf_iterator<char>(text), {}) << std::endl;
        }
        close(output);
    }
    const std::size_t failed = tests.size() - passed - skipped;
    std::cout << "Of " << tests.size() << " tests, " << passed << " passed, " << failed << " failed, " << skipped
              << " were skipped" << std::endl;
    if (failed != 0 || tests.empty()) {
        return EXIT_FAILURE;
    }
    return skipped == 0 ? EXIT_SUCCESS : kSkipped;
}

// Returns the exit code of a child that has run its test.
int CodeOfChild(int code)
{
    const auto& all = *::testing::UnitTest::GetInstance();
    if (code != 0 || all.test_to_run_count() != 1) {
        return EXIT_FAILURE;
    }
    return all.skipped_test_count() == 0 ? kPassed : kSkipped;
}

} // namespace

int main(int argc, char** argv)
{
    // Any warning of GLib ends the test.
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING));
    ::testing::InitGoogleTest(&argc, argv);
    // This is shorter than the runner's limit, which the presets set.
    const char* text = std::getenv("KIV_TEST_LIMIT");
    const unsigned limit = text != nullptr ? static_cast<unsigned>(std::atoi(text)) : 110;
    const bool forks = argc > 1 && std::string_view(argv[1]) == "--fork";
    if (forks) {
        if (const std::optional<int> code = ForkForEachTest(limit)) {
            return *code;
        }
    }
    ::testing::UnitTest::GetInstance()->listeners().Append(new LimitOfEachTest(limit));
    ::testing::AddGlobalTestEnvironment(new GlibVersion);
    const int code = RUN_ALL_TESTS();
    return forks ? CodeOfChild(code) : code;
}
