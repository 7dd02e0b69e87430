#include "platform/Platform.h"
#include "platform/host/LogSettings.h"

#include <glib.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <exception>
#include <iterator>
#include <limits>
#include <memory_resource>
#include <string>
#include <string_view>

namespace kiv::platform {
namespace {

constexpr int kPrinted = 0;
constexpr int kFailed = -1;

// No static object below has a destructor, because lines are still printed at exit.

// Lines of a lower priority are dropped. Until the environment has been read, no line is.
constinit std::atomic<int> g_threshold{std::numeric_limits<int>::min()};

const LogSettings& Settings()
{
    static const LogSettings settings = [] {
        const LogSettings read = ReadLogSettings();
        g_threshold.store(read.minimum, std::memory_order_relaxed);
        return read;
    }();
    return settings;
}

class ErrnoKeeper {
public:
    ErrnoKeeper() = default;
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
    ~ErrnoKeeper() { errno = saved_; }

private:
    const int saved_ = errno;
};

// Holds the lock of stdio, so that lines that the host prints to stderr stay whole, too.
class StderrLock {
public:
    StderrLock() { flockfile(stderr); }
    StderrLock(const StderrLock&) = delete;
    StderrLock& operator=(const StderrLock&) = delete;
    ~StderrLock() { funlockfile(stderr); }
};

struct Rank {
    char letter;
    int severity;
};

Rank RankOf(int priority)
{
    // The highest priority marks notable events, such as a start. It is not an alarm.
    static constexpr Rank kRanks[] = {
        {'D', LOG_DEBUG}, {'I', LOG_INFO}, {'W', LOG_WARNING}, {'E', LOG_ERR}, {'F', LOG_NOTICE}};
    return kRanks[std::clamp<int>(priority, kLogDebug, kLogMark) - kLogDebug];
}

bool BreaksLine(char character)
{
    const auto code = static_cast<unsigned char>(character);
    return (code < 0x20 && code != '\t') || code == 0x7f;
}

// Head, message and newline in one piece, which is on the stack unless it is long.
class LogLine {
public:
    __attribute__((format(printf, 4, 0))) LogLine(char letter, const char* tag, const char* format, va_list arguments)
    {
        text_.reserve(stack_.size() - 1);
        AppendTime();
        text_.append(1, ' ').append(1, letter).append(1, ' ').append(tag).append(": ");
        messageStart_ = text_.size();
        AppendMessage(format, arguments);
        while (text_.size() > messageStart_ && text_.back() == '\n') {
            text_.pop_back();
        }
        std::replace_if(text_.begin(), text_.end(), BreaksLine, ' ');
        text_ += '\n';
    }

    std::string_view Whole() const { return text_; }

    std::string_view Message() const { return Whole().substr(messageStart_, text_.size() - messageStart_ - 1); }

private:
    void AppendTime()
    {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        tm local{};
        localtime_r(&now.tv_sec, &local);
        char text[64];
        std::snprintf(
            text, sizeof text, "%02d:%02d:%02d.%03ld", local.tm_hour, local.tm_min, local.tm_sec,
            static_cast<long>(now.tv_nsec / 1'000'000));
        text_ += text;
    }

    __attribute__((format(printf, 2, 0))) void AppendMessage(const char* format, va_list arguments)
    {
        va_list secondPass;
        va_copy(secondPass, arguments);
        text_.resize(text_.capacity());
        const int length = std::vsnprintf(&text_[messageStart_], text_.size() - messageStart_ + 1, format, arguments);
        if (length < 0) {
            text_.resize(messageStart_);
            text_ += format;
        } else {
            const std::size_t needed = messageStart_ + static_cast<std::size_t>(length);
            const bool cut = needed > text_.size();
            text_.resize(needed);
            if (cut) {
                std::vsnprintf(&text_[messageStart_], static_cast<std::size_t>(length) + 1, format, secondPass);
            }
        }
        va_end(secondPass);
    }

    std::array<char, 1024> stack_;
    std::pmr::monotonic_buffer_resource memory_{stack_.data(), stack_.size()};
    std::pmr::string text_{&memory_};
    std::size_t messageStart_ = 0;
};

int WriteToStderr(std::string_view line)
{
    const StderrLock lock;
    while (!line.empty()) {
        const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
        if (written >= 0) {
            line.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return kFailed;
        }
    }
    return kPrinted;
}

bool WriteToJournal(int severity, const char* tag, std::string_view message)
{
    const char priority[] = {static_cast<char>('0' + severity), '\0'};
    const GLogField fields[] = {
        {"PRIORITY", priority, -1},
        {"SYSLOG_IDENTIFIER", tag, -1},
        {"MESSAGE", message.data(), static_cast<gssize>(message.size())}};
    return g_log_writer_journald(G_LOG_LEVEL_MESSAGE, fields, std::size(fields), nullptr) == G_LOG_WRITER_HANDLED;
}

int PrintLine(const LogLine& line, LogTarget target, int severity, const char* tag)
{
    const std::string_view message = line.Message();
    switch (target) {
    case LogTarget::kStderr:
        break;
    case LogTarget::kJournal:
        if (WriteToJournal(severity, tag, message)) {
            return kPrinted;
        }
        break;
    case LogTarget::kSyslog:
        syslog(severity, "%s: %.*s", tag, static_cast<int>(message.size()), message.data());
        return kPrinted;
    }
    return WriteToStderr(line.Whole());
}

__attribute__((format(printf, 4, 0))) int
Print(LogTarget target, int priority, const char* tag, const char* format, va_list arguments)
{
    try {
        const Rank rank = RankOf(priority);
        return PrintLine(LogLine(rank.letter, tag, format, arguments), target, rank.severity, tag);
    } catch (const std::exception&) { // there is no memory for the line
        return kFailed;
    }
}

} // namespace
} // namespace kiv::platform

using namespace kiv::platform;

[[gnu::visibility("default")]] int __dlog_print(int /*logId*/, int priority, const char* tag, const char* format, ...)
{
    if (priority < g_threshold.load(std::memory_order_relaxed)) {
        return kPrinted;
    }
    const ErrnoKeeper errnoKeeper;
    const LogSettings& settings = Settings();
    if (priority < settings.minimum) {
        return kPrinted;
    }
    va_list arguments;
    va_start(arguments, format);
    const int result = Print(settings.target, priority, tag, format, arguments);
    va_end(arguments);
    return result;
}
