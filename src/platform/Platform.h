#pragma once

// The two functions that the TV platform provides. The dynamic linker resolves them when the library is loaded, so
// their definitions must be visible to it.

namespace kiv::platform {

// The priorities of log lines. The marks, for start and stop, have the highest.
enum LogPriority : int { kLogDebug = 3, kLogInfo, kLogWarning, kLogError, kLogMark };

} // namespace kiv::platform

#pragma GCC visibility push(default)

extern "C" {

// Writes one log line. Returns a negative value on failure.
int __dlog_print(int logId, int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Reads a boolean device feature. Returns 0 on success; otherwise leaves *value alone.
int system_info_get_custom_bool(const char* key, bool* value);
}

#pragma GCC visibility pop
