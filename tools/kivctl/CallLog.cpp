#include "CallLog.h"

#include "LogLines.h"
#include "src/platform/Platform.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <string_view>
#include <vector>

namespace kiv::ctl {
namespace {

using PlatformsPrint = int (*)(int logId, int priority, const char* tag, const char* format, ...);

// The platform's numbers.
constexpr int kInfoPriority = 4;
constexpr int kErrorPriority = 6;

constexpr const char* kBusSilent = "the bus did not tell whether the server runs: ";

// The library logs at exit, too, when objects that have a destructor are gone.
struct LastCall {
    bool firstAttemptFailed;
    bool requestFailed;
    std::array<char, 1024> reason;
};

thread_local LastCall t_lastCall;

void SetCallReason(const std::string& reason)
{
    g_strlcpy(t_lastCall.reason.data(), reason.c_str(), t_lastCall.reason.size());
}

void SetCallFailure(const std::string& reason)
{
    t_lastCall.requestFailed = true;
    SetCallReason(reason);
}

// The texts in the brackets of a line, such as "[NAM_API] Error: method [%s],[%s]...".
std::vector<std::string> InBrackets(std::string_view text)
{
    std::vector<std::string> texts;
    for (size_t at = 0; (at = text.find('[', at)) != std::string_view::npos;) {
        const size_t end = std::min(text.find(']', at), text.size());
        texts.emplace_back(text.substr(at + 1, end - at - 1));
        at = end;
    }
    return texts;
}

// The reason of "[NAM_API] Error: method [%s],[%s]...", which may have brackets itself, and what it means.
std::string ReasonOfError(const std::string& text)
{
    constexpr std::string_view kBegin = "],[";
    constexpr std::string_view kEnd = "]...";
    constexpr std::string_view kGlibsPrefix = "GDBus.Error:";
    const size_t begin = text.find(kBegin) + kBegin.size();
    std::string reason = text.substr(begin, text.rfind(kEnd) - begin);
    if (reason.starts_with(kGlibsPrefix)) {
        reason.erase(0, kGlibsPrefix.size());
    }
    const LogLine* line = FindLogLine("MethodCall", text);
    return line == nullptr ? reason : fmt::format("{} ({})", reason, line->meaning);
}

void ReadError(const std::string& text)
{
    const auto has = [&text](std::string_view part) { return text.find(part) != std::string::npos; };
    if (has("request launch kiv-service")) {
        t_lastCall.firstAttemptFailed = true;
    } else if (has(" Error: method [")) {
        SetCallReason(ReasonOfError(text));
    } else if (text.starts_with("Failed to get uid [")) {
        SetCallReason(kBusSilent + InBrackets(text).front());
    } else if (text.starts_with("!!! ERROR ") && has(" not exist")) {
        if (!std::string_view(t_lastCall.reason.data()).starts_with(kBusSilent)) {
            SetCallReason("the server has gone");
        }
    } else if (has("m_pConnection is NULL")) {
        SetCallReason("the connection to the bus is lost");
    } else if (has(" expected, [") && !has("[NameHasOwner]")) {
        const std::vector<std::string> parts = InBrackets(text);
        SetCallFailure(fmt::format("the answer must be of the D-Bus type {}, got {}", parts[2], parts[3]));
    } else if (has("MethodCall") && (text.ends_with(" Error") || has(" Error, time("))) {
        t_lastCall.requestFailed = true;
    } else if (has(" from NAM, ") && !t_lastCall.requestFailed) {
        SetCallFailure("the server answered -1");
    }
}

// A line is "FILE: FUNCTION(LINE) > TEXT".
void ReadLogLine(int priority, std::string_view line)
{
    constexpr std::string_view kBeforeText = ") > ";
    const size_t before = line.find(kBeforeText);
    if (before == std::string_view::npos) {
        return;
    }
    const std::string_view text = line.substr(before + kBeforeText.size());
    if (priority == kInfoPriority && text.starts_with(">>> API Start")) {
        t_lastCall = {};
    } else if (priority == kErrorPriority) {
        ReadError(std::string(text));
    }
}

} // namespace

std::optional<std::string> RequestFailure()
{
    return t_lastCall.requestFailed ? std::optional<std::string>(t_lastCall.reason.data()) : std::nullopt;
}

bool FirstAttemptFailed()
{
    return t_lastCall.firstAttemptFailed;
}

} // namespace kiv::ctl

// The library finds this one before the platform's.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the platform's name
int __dlog_print(int logId, int priority, const char* tag, const char* format, ...)
{
    static const auto platformsPrint = reinterpret_cast<kiv::ctl::PlatformsPrint>(dlsym(RTLD_NEXT, "__dlog_print"));
    va_list arguments;
    va_start(arguments, format);
    g_autofree char* line = g_strdup_vprintf(format, arguments);
    va_end(arguments);
    kiv::ctl::ReadLogLine(priority, line);
    constexpr int kNotPrinted = -1;
    return platformsPrint == nullptr ? kNotPrinted : platformsPrint(logId, priority, tag, "%s", line);
}
