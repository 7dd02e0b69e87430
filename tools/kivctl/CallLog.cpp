#include "tools/kivctl/CallLog.h"

#include "src/link/Owners.h"
#include "src/platform/Platform.h"
#include "tools/kivctl/CallWatch.h"
#include "tools/kivctl/LogLines.h"

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

// The struct has no destructor, because the library logs at exit, too, when thread-local objects with one are
// destroyed.
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

// Returns the texts in the brackets of a line such as "[NAM_API] Error: method [%s],[%s]...".
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

// Returns the reason in "[NAM_API] Error: method [%s],[%s]...". The reason may itself have brackets.
std::string ReasonOfError(std::string_view text)
{
    constexpr std::string_view kBegin = "],[";
    constexpr std::string_view kEnd = "]...";
    const size_t begin = text.find(kBegin) + kBegin.size();
    return std::string(text.substr(begin, text.rfind(kEnd) - begin));
}

// Looks only at the beginnings of lines, because the rest may be a text of the server.
void ReadError(std::string_view text)
{
    if (text.starts_with("!!! ERROR ns_proxy.GetProxy()")) {
        t_lastCall.firstAttemptFailed = true;
        KeepFirstAttempt();
    } else if (text.starts_with("[NAM_API] Error: method [")) {
        SetCallReason(fmt::format("the library has not sent the request: {}", ReasonOfError(text)));
    } else if (text.starts_with("[NAM_API] method [")) {
        const std::vector<std::string> parts = InBrackets(text);
        if (parts.size() == 4 && parts[1] != "NameHasOwner") {
            SetCallFailure(fmt::format("the answer must be of the D-Bus type {}, got {}", parts[2], parts[3]));
        }
    } else if (text.starts_with("MethodCall Error") || text.starts_with("[NAM_API] MethodCall")) {
        // After a line that ends with " Error!", the library goes on.
        t_lastCall.requestFailed = t_lastCall.requestFailed || !text.ends_with(" Error!");
    } else if (text.starts_with("[NAM_API] Cannot get ") && !t_lastCall.requestFailed) {
        SetCallFailure("the server answered -1");
    }
}

void ReadLogLine(int priority, std::string_view line)
{
    const auto logged = LoggedBy(line);
    if (!logged || !logged->text) {
        return;
    }
    if (priority == platform::kLogInfo && logged->text->starts_with(">>> API Start")) {
        t_lastCall = {};
    } else if (priority == platform::kLogError) {
        ReadError(*logged->text);
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

// The dynamic linker resolves the library's calls to this function, and not to the platform's.
int __dlog_print(int logId, int priority, const char* tag, const char* format, ...)
{
    static const auto platformsPrint = reinterpret_cast<kiv::ctl::PlatformsPrint>(dlsym(RTLD_NEXT, "__dlog_print"));
    va_list arguments;
    va_start(arguments, format);
    const kiv::link::TextOwner line(g_strdup_vprintf(format, arguments));
    va_end(arguments);
    kiv::ctl::ReadLogLine(priority, line.get());
    constexpr int kNotPrinted = -1;
    return platformsPrint == nullptr ? kNotPrinted : platformsPrint(logId, priority, tag, "%s", line.get());
}
