#pragma once

namespace kiv::platform {

enum class LogTarget { kStderr, kJournal, kSyslog };

struct LogSettings {
    int minimum;
    LogTarget target;
};

// Reads the environment. A variable with an unknown value is reported on stderr, and counts as absent.
LogSettings ReadLogSettings();

} // namespace kiv::platform
