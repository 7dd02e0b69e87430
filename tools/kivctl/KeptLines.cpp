#include "tools/kivctl/KeptLines.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <sstream>
#include <string>

namespace kiv::ctl {
namespace {

// The last line that the library logs before it asks the bus to start the server.
constexpr const char* kLaunch = "request launch kiv-service";
constexpr const char* kTag = " NAM_SERVICE: ";
constexpr const char* kErrorTag = " E NAM_SERVICE: ";
// The library logs this as an error, but an empty list is an answer.
constexpr const char* kNothingListed = "pByteArray is NULL";

// The signal handler reads these two. Both are -1 while no lines are kept.
volatile std::sig_atomic_t g_kept = -1;
volatile std::sig_atomic_t g_stderr = -1;
std::FILE* g_stderrStream = stderr;
// The time limit's thread may end the keeping, too.
std::atomic<bool> g_keeping = false;

// Shows the kept lines, and ends the process by the signal. Calls only functions that a signal handler may call.
void ShowAndDie(int number)
{
    char chunk[4096];
    lseek(g_kept, 0, SEEK_SET);
    for (ssize_t length = 0; (length = read(g_kept, chunk, sizeof chunk)) > 0;) {
        if (write(g_stderr, chunk, static_cast<size_t>(length)) < 0) {
            break;
        }
    }
    raise(number); // SA_RESETHAND has restored the default action
}

// Handles the signals that end the process, except those that are ignored or handled already.
void HandleDeadlySignals()
{
    for (const int number : {SIGABRT, SIGBUS, SIGFPE, SIGHUP, SIGILL, SIGINT, SIGSEGV, SIGTERM}) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
            action.sa_handler = ShowAndDie;
            action.sa_flags = static_cast<int>(SA_RESETHAND);
            sigaction(number, &action, nullptr);
        }
    }
}

// Returns whether the platform's function exists. The loader looks for it when the library first calls it. If it were
// missing, the loader would write a line to stderr and end the process, and the kept lines would be lost.
bool PlatformIsComplete()
{
    return dlsym(RTLD_DEFAULT, "system_info_get_custom_bool") != nullptr;
}

// Restores stderr, and returns the kept lines.
std::string EndKeeping()
{
    if (!g_keeping.exchange(false)) {
        return {};
    }
    const int kept = g_kept;
    dup2(g_stderr, STDERR_FILENO);
    std::string lines;
    char chunk[4096];
    lseek(kept, 0, SEEK_SET);
    for (ssize_t length = 0; (length = read(kept, chunk, sizeof chunk)) > 0;) {
        lines.append(chunk, static_cast<size_t>(length));
    }
    g_kept = -1;
    close(kept);
    return lines;
}

void WriteToStderr(const std::string& lines)
{
    std::fwrite(lines.data(), 1, lines.size(), g_stderrStream);
    std::fflush(g_stderrStream);
}

// Returns whether a line should be shown beside an answer: an error after the server was found, or a line that is not
// from the library.
bool TellOfTrouble(const std::string& lines)
{
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line);) {
        const bool isError =
            line.find(kErrorTag) != std::string::npos && line.find(kNothingListed) == std::string::npos;
        if (isError || line.find(kTag) == std::string::npos) {
            return true;
        }
    }
    return false;
}

} // namespace

void KeepLogLines()
{
    if (!PlatformIsComplete()) {
        return;
    }
    const int original = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    std::FILE* stream = original < 0 ? nullptr : fdopen(original, "w");
    const int kept = stream == nullptr ? -1 : memfd_create("kivctl-log", MFD_CLOEXEC);
    if (kept < 0) {
        return;
    }
    g_kept = kept;
    g_stderr = original;
    g_stderrStream = stream;
    g_keeping = true;
    HandleDeadlySignals();
    dup2(kept, STDERR_FILENO);
}

void ShowLogLines()
{
    WriteToStderr(EndKeeping());
}

void DropMootLogLines()
{
    std::string lines = EndKeeping();
    if (const size_t launch = lines.rfind(kLaunch); launch != std::string::npos) {
        lines.erase(0, lines.find('\n', launch) + 1);
    }
    if (TellOfTrouble(lines)) {
        WriteToStderr(lines);
    }
}

std::FILE* Stderr()
{
    return g_stderrStream;
}

} // namespace kiv::ctl
