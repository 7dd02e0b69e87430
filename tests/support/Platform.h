#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

// The TV platform as the tests provide it: the log is captured, the device feature is what the test says.
namespace kiv::test {

struct LogLine {
    int logId;
    int priority;
    std::string tag;
    std::string file;
    std::string function;
    int line;
    std::string text; // what follows the head
    bool ofTestThread;

    // "E GetProxy: [NAM_API] NULL != pError"
    std::string Short() const;
};

namespace platform_log {

std::vector<LogLine> Lines();
void Clear();

// The lines that the test's own thread caused, in their short form.
std::vector<std::string> OfTestThread();
// All lines of a function, whichever thread wrote them, in their short form.
std::vector<std::string> OfFunction(const std::string& function);
std::size_t Count(const std::string& shortForm);

// Returns when this line has been written that often.
void WaitFor(const std::string& shortForm, std::size_t count = 1);
// Returns when a line fulfils the condition, and gives it.
LogLine WaitForLine(const std::function<bool(const LogLine&)>& condition);

// Called by every log call before it returns, on the thread that logs.
void OnLine(std::function<void(const LogLine&)> hook);

} // namespace platform_log

namespace feature {

// Nothing: the key cannot be read.
void Set(std::optional<bool> supported);
int Reads();
std::string LastKey();

} // namespace feature

} // namespace kiv::test
