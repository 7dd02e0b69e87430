#include "src/link/Owners.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::platform {
namespace {

using Strings = std::vector<std::string>;

struct Outcome {
    bool succeeded = false;
    std::string output; // the output to the journal or to syslog
    std::string errors;
};

// Runs the log host with only the given variables in its environment.
Outcome RunLogHost(const Strings& environment, const Strings& arguments)
{
    const auto pointersTo = [](const Strings& strings) {
        std::vector<char*> pointers;
        for (const std::string& each : strings) {
            pointers.push_back(const_cast<char*>(each.c_str()));
        }
        pointers.push_back(nullptr);
        return pointers;
    };
    Strings command{KIV_LOG_HOST};
    command.insert(command.end(), arguments.begin(), arguments.end());

    g_autofree char* output = nullptr;
    g_autofree char* errors = nullptr;
    link::ErrorOwner error;
    int status = -1;
    if (!g_spawn_sync(
            nullptr, pointersTo(command).data(), pointersTo(environment).data(), G_SPAWN_DEFAULT, nullptr, nullptr,
            &output, &errors, &status, error.Out())) {
        ADD_FAILURE() << error->message;
        return {};
    }
    return {g_spawn_check_wait_status(status, nullptr) != FALSE, output, errors};
}

Strings LinesOf(const std::string& text)
{
    Strings lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Returns the lines on stderr of a log host that succeeded, without the time at their beginning.
Strings LinesLogged(const Strings& environment, const Strings& arguments)
{
    static constexpr std::string_view kTime = "00:00:00.000 ";

    const Outcome outcome = RunLogHost(environment, arguments);
    EXPECT_TRUE(outcome.succeeded) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(outcome.errors.empty() || outcome.errors.back() == '\n');
    Strings lines = LinesOf(outcome.errors);
    for (std::string& line : lines) {
        std::string time = line.substr(0, kTime.size());
        std::replace_if(
            time.begin(), time.end(), [](char each) { return g_ascii_isdigit(each); }, '0');
        EXPECT_EQ(time, kTime) << line;
        line.erase(0, kTime.size());
    }
    return lines;
}

const Strings kEveryLine{
    "D HOST: priority 3", "I HOST: priority 4", "W HOST: priority 5", "E HOST: priority 6", "F HOST: priority 7"};

Strings FromPriority(int priority)
{
    return {kEveryLine.begin() + (priority - 3), kEveryLine.end()};
}

TEST(Log, PrintsWarningsAndAboveToStderrByDefault)
{
    EXPECT_EQ(LinesLogged({}, {"priorities"}), FromPriority(5));
}

TEST(Log, DropsLinesBelowTheChosenLevel)
{
    const std::map<std::string, Strings> expected{{"debug", FromPriority(3)},   {"info", FromPriority(4)},
                                                  {"warning", FromPriority(5)}, {"error", FromPriority(6)},
                                                  {"fatal", FromPriority(7)},   {"none", {}}};
    for (const auto& [level, lines] : expected) {
        EXPECT_EQ(LinesLogged({"KIV_LOG_LEVEL=" + level}, {"priorities"}), lines) << level;
    }
}

TEST(Log, TakesAnEmptyVariableAsAbsent)
{
    EXPECT_EQ(LinesLogged({"KIV_LOG_LEVEL=", "KIV_LOG_TARGET="}, {"priorities"}), FromPriority(5));
}

TEST(Log, ReportsUnknownValuesOnceAndUsesTheDefaults)
{
    const Outcome outcome = RunLogHost({"KIV_LOG_LEVEL=loud", "KIV_LOG_TARGET=printer"}, {"priorities"});
    EXPECT_TRUE(outcome.succeeded);
    const Strings lines = LinesOf(outcome.errors);
    ASSERT_EQ(lines.size(), 5U) << outcome.errors;
    EXPECT_EQ(
        lines[0], "KIV_LOG_LEVEL: 'loud' is not one of debug, info, warning, error, fatal, none; 'warning' is used");
    EXPECT_EQ(lines[1], "KIV_LOG_TARGET: 'printer' is not one of stderr, journal, syslog; 'stderr' is used");
    EXPECT_NE(lines[2].find("W HOST: priority 5"), std::string::npos) << lines[2];
}

TEST(Log, ReportsAnUnknownValueOnceToThreadsThatStartTogether)
{
    const Outcome outcome = RunLogHost({"KIV_LOG_LEVEL=loud"}, {"threads", "8", "1", "1"});
    const Strings lines = LinesOf(outcome.errors);
    EXPECT_EQ(lines.size(), 9U) << outcome.errors;
    EXPECT_EQ(lines.front().rfind("KIV_LOG_LEVEL: ", 0), 0U) << lines.front();
}

TEST(Log, DoesNotFormatALineBelowTheLevel)
{
    EXPECT_TRUE(RunLogHost({}, {"unreadable", "4"}).succeeded);
    EXPECT_FALSE(RunLogHost({}, {"unreadable", "5"}).succeeded) << "an unreadable argument goes unnoticed";
}

TEST(Log, KeepsErrno)
{
    EXPECT_TRUE(RunLogHost({}, {"errno"}).succeeded);
    EXPECT_TRUE(RunLogHost({"KIV_LOG_LEVEL=loud"}, {"errno"}).succeeded);
    EXPECT_TRUE(RunLogHost({"KIV_LOG_TARGET=journal"}, {"errno"}).succeeded);
    EXPECT_TRUE(RunLogHost({"KIV_LOG_TARGET=syslog"}, {"errno"}).succeeded);
}

TEST(Log, FailsWithoutStderr)
{
    EXPECT_TRUE(RunLogHost({}, {"no-stderr"}).succeeded);
}

TEST(Log, PrintsEachMessageAsOneLine)
{
    EXPECT_EQ(
        LinesLogged({}, {"messages", "6", "ends\n", "one\ntwo\r\n\n", "\x1b[31mred\x7f", "a\tb ", "", "\n", "Küche"}),
        (Strings{
            "E HOST: ends", "E HOST: one two ", "E HOST:  [31mred ", "E HOST: a\tb ",
            "E HOST: ", "E HOST: ", "E HOST: Küche"}));
}

TEST(Log, PrintsTheFormatOfAMessageThatCannotBeFormatted)
{
    EXPECT_EQ(LinesLogged({}, {"unencodable"}), Strings{"E HOST: wide %ls"});
}

TEST(Log, PrintsAMessageOfAnyLength)
{
    Strings arguments{"messages", "6"};
    Strings expected;
    const auto add = [&](std::size_t length) {
        const std::string message = std::string(length - 1, 'x') + "$";
        arguments.push_back(message);
        expected.push_back("E HOST: " + message);
    };
    for (std::size_t length = 950; length < 1100; ++length) {
        add(length);
    }
    add(100'000);
    EXPECT_EQ(LinesLogged({}, arguments), expected);
}

// Expects whole lines of eight writers, each with a letter of its own.
void ExpectWholeLines(const std::string& writers, int lines, int length)
{
    std::map<std::string, int> expected;
    for (const char letter : std::string("abcdefgh")) {
        expected["E HOST: " + std::string(static_cast<std::size_t>(length), letter)] = lines;
    }
    std::map<std::string, int> logged;
    for (const std::string& line : LinesLogged({}, {writers, "8", std::to_string(lines), std::to_string(length)})) {
        ++logged[line];
    }
    EXPECT_TRUE(logged == expected) << writers << " mixed lines of " << length;
}

TEST(Log, NeverMixesTheLinesOfThreads)
{
    ExpectWholeLines("threads", 1000, 200);
    ExpectWholeLines("threads", 100, 50'000);
}

TEST(Log, NeverMixesTheLinesOfProcesses)
{
    ExpectWholeLines("processes", 1000, 500);
}

TEST(Log, PrintsUntilTheProcessHasEnded)
{
    const Strings lines = LinesLogged({}, {"exit"});
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "E HOST: last word"), 1);
}

TEST(Log, WritesToTheJournal)
{
    const Outcome outcome =
        RunLogHost({"KIV_LOG_LEVEL=debug", "KIV_LOG_TARGET=journal", "LOG_HOST_JOURNAL=1"}, {"priorities"});
    EXPECT_TRUE(outcome.succeeded);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(
        outcome.output, "PRIORITY=7\nSYSLOG_IDENTIFIER=HOST\nMESSAGE=priority 3\n"
                        "PRIORITY=6\nSYSLOG_IDENTIFIER=HOST\nMESSAGE=priority 4\n"
                        "PRIORITY=4\nSYSLOG_IDENTIFIER=HOST\nMESSAGE=priority 5\n"
                        "PRIORITY=3\nSYSLOG_IDENTIFIER=HOST\nMESSAGE=priority 6\n"
                        "PRIORITY=5\nSYSLOG_IDENTIFIER=HOST\nMESSAGE=priority 7\n");
}

TEST(Log, WritesToStderrWhereThereIsNoJournal)
{
    EXPECT_EQ(LinesLogged({"KIV_LOG_TARGET=journal"}, {"priorities"}), FromPriority(5));
}

TEST(Log, WritesToSyslog)
{
    const Outcome outcome = RunLogHost({"KIV_LOG_LEVEL=debug", "KIV_LOG_TARGET=syslog"}, {"priorities"});
    EXPECT_TRUE(outcome.succeeded);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(
        outcome.output, "7 HOST: priority 3\n6 HOST: priority 4\n4 HOST: priority 5\n3 HOST: priority 6\n"
                        "5 HOST: priority 7\n");
}

} // namespace
} // namespace kiv::platform
