#pragma once

#include "Recorder.h"
#include "page/History.h"

#include <gio/gio.h>
#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace kiv::sandbox {

/// Prints a line of the history. An answer that is an error gets what doctor says of it.
std::string ShownLine(nlohmann::json line);

/**
 * Has the history tell of a sandbox: what travels on its bus, what the application logs, and the states "home",
 * "server" and "bus". A bus that has gone is looked for until it is back. Lives as long as the process.
 */
class LiveSandbox {
public:
    LiveSandbox(std::string address, History& history);
    LiveSandbox(const LiveSandbox&) = delete;
    LiveSandbox& operator=(const LiveSandbox&) = delete;

    /// Has the lines of the application's stderr arrive at an abstract socket of this name, each as a datagram.
    void ReadLog(const std::string& socketName);
    /// Microseconds since the epoch at which the lines' own times begin.
    std::int64_t Begin() const { return begin_; }

private:
    void Connect();
    void LookAtBus();
    void SetBus(const char* state);
    void AwaitChange();
    void Take(const Message& message);
    void Post(nlohmann::json line);

    static void OnClosed(LiveSandbox* self);
    static void OnState(GObject* connection, GAsyncResult* result, void* self);
    static gboolean OnDatagram(GSocket* socket, GIOCondition, void* self);

    std::string address_;
    History& history_;
    std::int64_t begin_ = g_get_real_time();
    std::int64_t start_ = g_get_monotonic_time();
    GDBusConnection* connection_ = nullptr;
    std::unique_ptr<BusTrace> trace_;
    RecordedMessages messages_;
    std::string home_;
    const char* bus_ = "";
};

} // namespace kiv::sandbox
