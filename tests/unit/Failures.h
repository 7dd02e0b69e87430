#pragma once

#include <gio/gio.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string_view>

// Replaces calls at link time, so that a test can make them fail.
namespace kiv::test {

// A failure of one of the replaced calls.
class Failure {
public:
    // Makes the next call of this kind fail, or the one after this number of other calls. Null stands for any kind.
    void Arm(const char* kind = nullptr, int others = 0)
    {
        const std::lock_guard lock(mutex_);
        armed_ = true;
        kind_ = kind;
        others_ = others;
    }

    bool IsArmed()
    {
        const std::lock_guard lock(mutex_);
        return armed_;
    }

    // Returns whether this call is to fail.
    bool Strikes(const char* kind = "")
    {
        const std::lock_guard lock(mutex_);
        if (!armed_ || (kind_ != nullptr && std::string_view(kind_) != kind) || others_-- > 0) {
            return false;
        }
        armed_ = false;
        return true;
    }

private:
    std::mutex mutex_;
    bool armed_ = false;
    const char* kind_ = nullptr;
    int others_ = 0;
};

extern Failure g_calloc;
extern Failure g_variant;  // g_variant_new(), by format
extern Failure g_messages; // g_dbus_message_copy(), by method
extern Failure g_replies;  // g_dbus_connection_call_sync(), by method: neither reply nor error
extern Failure g_contexts;
extern Failure g_nodeInfo;
extern Failure g_bus;      // g_bus_get_sync(): neither connection nor error
extern Failure g_busError; // g_bus_get_sync(): the error with which an opening ended at another time
extern Failure g_registration;
extern Failure g_thread; // pthread_create() for the monitor

// The number of attempts to create a monitor thread.
extern std::atomic<int> g_monitorThreads;

// Whether a thread is about to join another one.
extern std::atomic<bool> g_isJoining;

// Runs once, after GIO has opened the next connection with g_initable_init() and before its caller goes on.
extern std::function<void(GDBusConnection* opened)> g_afterOpening;

} // namespace kiv::test
