#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

// The TV platform of the tests. It captures the log, expects the same head of every line, and has the device feature
// that a test sets.
namespace kiv::test {

struct LogLine {
    int priority;
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

// Waits for the line with the path of the endpoint, which comes before its name is requested.
void WaitForEndpoint();

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
