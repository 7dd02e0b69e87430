#include <execinfo.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

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

} // namespace

int main(int argc, char** argv)
{
    // Any warning of GLib ends the test.
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING));
    ::testing::InitGoogleTest(&argc, argv);
    // This is shorter than the runner's limit, which the presets set.
    const char* limit = std::getenv("KIV_TEST_LIMIT");
    ::testing::UnitTest::GetInstance()->listeners().Append(
        new LimitOfEachTest(limit != nullptr ? static_cast<unsigned>(std::atoi(limit)) : 110));
    ::testing::AddGlobalTestEnvironment(new GlibVersion);
    return RUN_ALL_TESTS();
}
