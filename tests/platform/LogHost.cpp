// Logs as the first argument says. Stands in for the journal and for syslog, and prints their lines on stdout.

#include "src/platform/Platform.h"
#include "support/Wait.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using Arguments = std::vector<std::string>;

constexpr int kLogId = 2;
constexpr const char* kTag = "HOST";

int Number(const std::string& text)
{
    return std::stoi(text);
}

void Print(int priority, const std::string& message)
{
    __dlog_print(kLogId, priority, kTag, "%s", message.c_str());
}

// Arguments: <priority> <message>...
int PrintMessages(const Arguments& arguments)
{
    for (auto message = arguments.begin() + 1; message != arguments.end(); ++message) {
        Print(Number(arguments.front()), *message);
    }
    return EXIT_SUCCESS;
}

int PrintEveryPriority(const Arguments&)
{
    for (int priority = 3; priority <= 7; ++priority) {
        Print(priority, "priority " + std::to_string(priority));
    }
    return EXIT_SUCCESS;
}

// Argument: <priority>. The argument of the line cannot be read, so formatting it would end the process.
int PrintUnreadable(const Arguments& arguments)
{
    const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const void* const page = mmap(nullptr, pageSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return EXIT_FAILURE;
    }
    for (int line = 0; line < 2; ++line) {
        __dlog_print(kLogId, Number(arguments.front()), kTag, "%s", static_cast<const char*>(page));
    }
    return EXIT_SUCCESS;
}

// Prints a character that the plain locale does not have.
int PrintUnencodable(const Arguments&)
{
    __dlog_print(kLogId, 6, kTag, "wide %ls", L"\u0394");
    return EXIT_SUCCESS;
}

// Checks that lines of every priority, the first ones of the process, leave errno alone.
int KeepErrno(const Arguments&)
{
    for (int priority = 3; priority <= 7; ++priority) {
        errno = EPROTO;
        Print(priority, std::string(5000, 'x'));
        if (errno != EPROTO) {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}

int PrintWithoutStderr(const Arguments&)
{
    close(STDERR_FILENO);
    errno = EPROTO;
    const int result = __dlog_print(kLogId, 6, kTag, "nobody reads this");
    return result < 0 && errno == EPROTO ? EXIT_SUCCESS : EXIT_FAILURE;
}

void PrintRepeatedly(char letter, int lines, int length)
{
    const std::string message(static_cast<std::size_t>(length), letter);
    for (int line = 0; line < lines; ++line) {
        Print(6, message);
    }
}

char Letter(int writer)
{
    return static_cast<char>('a' + writer);
}

// Arguments: <threads> <lines> <length>
int PrintInThreads(const Arguments& arguments)
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < Number(arguments[0]); ++thread) {
        threads.emplace_back(PrintRepeatedly, Letter(thread), Number(arguments[1]), Number(arguments[2]));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return EXIT_SUCCESS;
}

// Arguments: <processes> <lines> <length>
int PrintInProcesses(const Arguments& arguments)
{
    const int processes = Number(arguments[0]);
    for (int process = 0; process < processes; ++process) {
        if (fork() == 0) {
            PrintRepeatedly(Letter(process), Number(arguments[1]), Number(arguments[2]));
            _exit(EXIT_SUCCESS);
        }
    }
    int result = EXIT_SUCCESS;
    for (int process = 0; process < processes; ++process) {
        int status = 0;
        if (wait(&status) < 0 || status != 0) {
            result = EXIT_FAILURE;
        }
    }
    return result;
}

// Leaves main while threads print. The last line comes after the destructors of all static objects.
int PrintThroughExit(const Arguments&)
{
    static std::atomic<int> printing{0};
    for (int thread = 0; thread < 4; ++thread) {
        std::thread([] {
            for (bool counted = false;; counted = true) {
                Print(6, "on and on");
                printing += counted ? 0 : 1;
            }
        }).detach();
    }
    kiv::test::WaitUntil("four threads to print", [] { return printing == 4; });
    return EXIT_SUCCESS;
}

// Prints an entry. A field is "NAME=value\n", or "NAME\n", the value's length in eight bytes, and "value\n".
void PrintJournalEntry(std::string_view entry)
{
    while (!entry.empty()) {
        const std::size_t nameLength = entry.find_first_of("=\n");
        const std::string name(entry.substr(0, nameLength));
        const bool isText = entry.at(nameLength) == '=';
        entry.remove_prefix(nameLength + 1);
        std::size_t length = entry.find('\n');
        if (!isText) {
            std::uint64_t binaryLength = 0;
            entry.copy(reinterpret_cast<char*>(&binaryLength), sizeof binaryLength);
            entry.remove_prefix(sizeof binaryLength);
            length = static_cast<std::size_t>(binaryLength);
        }
        std::printf("%s=%s\n", name.c_str(), std::string(entry.substr(0, length)).c_str());
        entry.remove_prefix(length + 1);
    }
}

[[gnu::format(printf, 2, 0)]] void PrintSyslogLine(int severity, const char* format, va_list arguments)
{
    std::printf("%d ", severity);
    std::vprintf(format, arguments);
    std::printf("\n");
}

bool g_lastWord = false;

[[gnu::destructor(101)]] void PrintLastWord()
{
    if (g_lastWord) {
        Print(6, "last word");
    }
}

} // namespace

// Stands in for the journal if LOG_HOST_JOURNAL is set.
extern "C" [[gnu::visibility("default")]] ssize_t sendmsg(int /*socket*/, const msghdr* message, int /*flags*/)
{
    if (std::getenv("LOG_HOST_JOURNAL") == nullptr) {
        errno = ENOENT;
        return -1;
    }
    std::string entry;
    for (std::size_t part = 0; part < message->msg_iovlen; ++part) {
        entry.append(static_cast<const char*>(message->msg_iov[part].iov_base), message->msg_iov[part].iov_len);
    }
    PrintJournalEntry(entry);
    return static_cast<ssize_t>(entry.size());
}

extern "C" [[gnu::visibility("default"), gnu::format(printf, 2, 3)]] void syslog(int severity, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    PrintSyslogLine(severity, format, arguments);
    va_end(arguments);
}

// syslog() has this name in a build with fortified calls.
extern "C" [[gnu::visibility("default"), gnu::format(printf, 3, 4)]] void
__syslog_chk(int severity, int /*flag*/, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    PrintSyslogLine(severity, format, arguments);
    va_end(arguments);
}

int main(int argc, char** argv)
{
    const std::map<std::string_view, int (*)(const Arguments&)> actions{
        {"messages", PrintMessages},
        {"priorities", PrintEveryPriority},
        {"unreadable", PrintUnreadable},
        {"unencodable", PrintUnencodable},
        {"errno", KeepErrno},
        {"no-stderr", PrintWithoutStderr},
        {"threads", PrintInThreads},
        {"processes", PrintInProcesses},
        {"exit", PrintThroughExit}};
    const Arguments arguments(argv + 1, argv + argc);
    const auto action = arguments.empty() ? actions.end() : actions.find(arguments.front());
    if (action == actions.end()) {
        return EXIT_FAILURE;
    }
    g_lastWord = action->first == "exit";
    return action->second(Arguments(arguments.begin() + 1, arguments.end()));
}
