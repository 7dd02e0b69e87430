// The TV platform that the targets use: a log that prints nothing, but formats every line, and a device that has
// network speakers.

#include "src/platform/Platform.h"

#include "fuzz/Platform.h"
#include "fuzz/Target.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace {

int g_errorCount;

} // namespace

int kiv::fuzz::TakeErrorCount()
{
    return std::exchange(g_errorCount, 0);
}

int __dlog_print(int /*logId*/, int priority, const char* /*tag*/, const char* format, ...)
{
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    KIV_REQUIRE(std::vsnprintf(line, sizeof line, format, arguments) >= 0);
    va_end(arguments);
    g_errorCount += priority == kiv::platform::kLogError ? 1 : 0;
    return 0;
}

int system_info_get_custom_bool(const char* /*key*/, bool* value)
{
    *value = true;
    return 0;
}
