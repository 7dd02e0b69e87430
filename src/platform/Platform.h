#pragma once

// The two calls that the TV platform provides; both are resolved when the library is loaded. Whoever defines them must
// be visible to the dynamic linker.

#pragma GCC visibility push(default)

extern "C" {

// Writes one log line; returns a negative value on failure.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the platform's name
int __dlog_print(int logId, int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Reads a boolean device feature; returns 0 on success, and leaves *value alone otherwise.
int system_info_get_custom_bool(const char* key, bool* value);
}

#pragma GCC visibility pop
