#pragma once

#include "platform/Platform.h"

namespace kiv::link {

inline constexpr int kLogId = 2;
inline constexpr const char* kLogTag = "NAM_SERVICE";
inline constexpr const char* kApiTag = "NAM_API";

// Every log line names this file, whichever source file writes it.
inline constexpr const char* kLogFile = "KivServiceInterface.cpp";

// The function and the line that a log line names. A helper gets them from the exported function that it serves.
struct Here {
    const char* function;
    int line;
};

} // namespace kiv::link

#define KIV_HERE (::kiv::link::Here{__func__, __LINE__})

#define KIV_LOG_AT(here, priority, format, ...)                                                       \
    __dlog_print(                                                                                     \
        ::kiv::link::kLogId, ::kiv::platform::priority, ::kiv::link::kLogTag, "%s: %s(%d) > " format, \
        ::kiv::link::kLogFile, (here).function, (here).line __VA_OPT__(, ) __VA_ARGS__)

#define KIV_LOG_DEBUG(...) KIV_LOG_AT(KIV_HERE, kLogDebug, __VA_ARGS__)
#define KIV_LOG_INFO(...) KIV_LOG_AT(KIV_HERE, kLogInfo, __VA_ARGS__)
#define KIV_LOG_WARNING(...) KIV_LOG_AT(KIV_HERE, kLogWarning, __VA_ARGS__)
#define KIV_LOG_ERROR(...) KIV_LOG_AT(KIV_HERE, kLogError, __VA_ARGS__)
#define KIV_LOG_MARK(...) KIV_LOG_AT(KIV_HERE, kLogMark, __VA_ARGS__)

// KIV_MAC_FORMAT prints a MAC address. KIV_MAC_BYTES passes its bytes to that format, or to a tuple "(yyyyyy...)".
#define KIV_MAC_FORMAT "%02x:%02x:%02x:%02x:%02x:%02x"
#define KIV_MAC_BYTES(mac) (mac)[0], (mac)[1], (mac)[2], (mac)[3], (mac)[4], (mac)[5]
