#pragma once

#include "page/History.h"
#include "page/MessageLines.h"

#include <gio/gio.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kiv::sandbox {

class BusTrace;

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
    void AwaitChange();
    void SetUp(const char* name, bool isUp);
    void Post(nlohmann::json line);
    void AddLogLine(const std::string& text);
    std::int64_t Elapsed() const;

    static gboolean LookAtBus(void* self);
    static void OnClosed(LiveSandbox* self);
    static void OnState(GObject* connection, GAsyncResult* result, void* self);
    static gboolean OnDatagram(GSocket* socket, GIOCondition, void* self);
    static gboolean TakePosted(void* self);

    std::string address_;
    History& history_;
    std::int64_t begin_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    GDBusConnection* connection_ = nullptr;
    std::unique_ptr<BusTrace> trace_;
    MessageLines lines_;
    std::string home_;
    bool hangs_ = false;
    std::mutex mutex_;
    std::vector<std::string> posted_; // by the trace's thread
};

} // namespace kiv::sandbox
