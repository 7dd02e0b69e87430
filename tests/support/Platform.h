#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

// The TV platform of the tests. It captures the log, and a test sets the device feature.
namespace kiv::test {

struct LogLine {
    int logId;
    int priority;
    std::string tag;
    std::string file;
    std::string function;
    int line;
    std::string text; // the text behind the head
    bool ofTestThread;

    // Returns the short form: "E GetProxy: [NAM_API] NULL != pError".
    std::string Short() const;
};

namespace platform_log {

std::vector<LogLine> Lines();
void Clear();

// Returns the lines of the test's own thread, in their short form.
std::vector<std::string> OfTestThread();
// Returns all lines of a function, whichever thread logged them, in their short form.
std::vector<std::string> OfFunction(const std::string& function);
std::size_t Count(const std::string& shortForm);

// Returns when this line has been logged this many times.
void WaitFor(const std::string& shortForm, std::size_t count = 1);
// Waits for a line that fulfils the condition, and returns it.
LogLine WaitForLine(const std::function<bool(const LogLine&)>& condition);

// Sets a hook that every log call runs before it returns, on the thread that logs.
void OnLine(std::function<void(const LogLine&)> hook);

} // namespace platform_log

namespace feature {

// Sets the feature. Nothing means that the key cannot be read.
void Set(std::optional<bool> supported);
int Reads();
std::string LastKey();

} // namespace feature

} // namespace kiv::test
