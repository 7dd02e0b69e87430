#include "support/Platform.h"

#include "src/platform/Platform.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

namespace kiv::test {

namespace {

constexpr const char* kHead = "%s: %s(%d) > ";

struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<LogLine> lines;
    std::function<void(const LogLine&)> hook;
    std::optional<bool> supported = true;
    int reads = 0;
    std::string key;
    const std::thread::id testThread = std::this_thread::get_id();
};

// The state is never destroyed, because the library may log as long as the process lives.
State& TheState()
{
    static State* const state = new State;
    return *state;
}

// Initialised on the main thread, before another thread can log.
[[maybe_unused]] const State& g_state = TheState();

__attribute__((format(printf, 1, 0))) std::string Format(const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, again)), '\0');
    va_end(again);
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

} // namespace

std::string LogLine::Short() const
{
    static constexpr char letters[] = "???DIWEM";
    const char letter = priority >= 3 && priority <= 7 ? letters[priority] : '?';
    return std::string(1, letter) + " " + function + ": " + text;
}

namespace platform_log {

std::vector<LogLine> Lines()
{
    const std::lock_guard lock(TheState().mutex);
    return TheState().lines;
}

void Clear()
{
    const std::lock_guard lock(TheState().mutex);
    TheState().lines.clear();
}

namespace {

template <typename Condition>
std::vector<std::string> Select(Condition condition)
{
    std::vector<std::string> selected;
    for (const LogLine& line : Lines()) {
        if (condition(line)) {
            selected.push_back(line.Short());
        }
    }
    return selected;
}

} // namespace

std::vector<std::string> OfTestThread()
{
    return Select([](const LogLine& line) { return line.ofTestThread; });
}

std::vector<std::string> OfFunction(const std::string& function)
{
    return Select([&](const LogLine& line) { return line.function == function; });
}

std::size_t Count(const std::string& shortForm)
{
    return Select([&](const LogLine& line) { return line.Short() == shortForm; }).size();
}

void WaitFor(const std::string& shortForm, std::size_t count)
{
    State& state = TheState();
    std::unique_lock lock(state.mutex);
    const auto written = [&] {
        const auto matches = [&](const LogLine& line) { return line.Short() == shortForm; };
        return static_cast<std::size_t>(std::ranges::count_if(state.lines, matches)) >= count;
    };
    WaitUntil("the log line " + shortForm, state.changed, lock, written);
}

LogLine WaitForLine(const std::function<bool(const LogLine&)>& condition)
{
    State& state = TheState();
    std::unique_lock lock(state.mutex);
    const auto find = [&] { return std::ranges::find_if(state.lines, condition); };
    WaitUntil("a log line with a certain text", state.changed, lock, [&] { return find() != state.lines.end(); });
    return *find();
}

void WaitForEndpoint()
{
    WaitForLine([](const LogLine& line) { return line.text.find("strProxyObjPath") != std::string::npos; });
}

void OnLine(std::function<void(const LogLine&)> hook)
{
    const std::lock_guard lock(TheState().mutex);
    TheState().hook = std::move(hook);
}

} // namespace platform_log

namespace feature {

void Set(std::optional<bool> supported)
{
    const std::lock_guard lock(TheState().mutex);
    TheState().supported = supported;
}

int Reads()
{
    const std::lock_guard lock(TheState().mutex);
    return TheState().reads;
}

std::string LastKey()
{
    const std::lock_guard lock(TheState().mutex);
    return TheState().key;
}

} // namespace feature

} // namespace kiv::test

using kiv::test::LogLine;
using kiv::test::State;
using kiv::test::TheState;

int __dlog_print(int logId, int priority, const char* tag, const char* format, ...)
{
    if (std::strncmp(format, kiv::test::kHead, std::strlen(kiv::test::kHead)) != 0) {
        std::fprintf(stderr, "a log line without its head: %s\n", format);
        std::abort();
    }
    va_list arguments;
    va_start(arguments, format);
    const char* const file = va_arg(arguments, const char*);
    LogLine line{priority, va_arg(arguments, const char*), va_arg(arguments, int), {}, false};
    line.text = kiv::test::Format(format + std::strlen(kiv::test::kHead), arguments);
    va_end(arguments);

    EXPECT_EQ(logId, 2) << line.Short();
    EXPECT_STREQ(tag, "NAM_SERVICE") << line.Short();
    EXPECT_STREQ(file, "KivServiceInterface.cpp") << line.Short();
    EXPECT_GT(line.line, 0) << line.Short();

    State& state = TheState();
    line.ofTestThread = std::this_thread::get_id() == state.testThread;
    std::function<void(const LogLine&)> hook;
    {
        const std::lock_guard lock(state.mutex);
        state.lines.push_back(line);
        hook = state.hook;
        state.changed.notify_all();
    }
    if (hook) {
        hook(line);
    }
    return 0;
}

int system_info_get_custom_bool(const char* key, bool* value)
{
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    ++state.reads;
    state.key = key;
    if (!state.supported) {
        return -1;
    }
    *value = *state.supported;
    return 0;
}
