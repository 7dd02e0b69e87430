#pragma once

namespace kiv::platform {

// The platform's log priorities.
enum Priority : int { kDebug = 3, kInfo, kWarning, kError, kFatal };

enum class LogTarget { kStderr, kJournal, kSyslog };

struct LogSettings {
    int minimum;
    LogTarget target;
};

// Reads the environment. A variable with an unknown value is reported on stderr, and counts as absent.
LogSettings ReadLogSettings();

} // namespace kiv::platform
