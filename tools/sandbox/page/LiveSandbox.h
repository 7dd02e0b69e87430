#pragma once

#include "src/link/Owners.h"
#include "tools/sandbox/Recorder.h"
#include "tools/sandbox/page/History.h"

#include <gio/gio.h>
#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace kiv::ctl {
class Layout;
}

namespace kiv::sandbox {

// Returns the layout of the server's records. Throws std::runtime_error if the file cannot be used.
const ctl::Layout& ServerLayout();

// Returns a line of the history as text. Adds doctor's finding and advice to an answer that is an error, and to an
// event the text by which kivctl shows it.
std::string ShownLine(nlohmann::json line);

// Fills the history with the messages on the bus of a sandbox, the application's log, and the states "home", "server"
// and "bus". If the bus ends, it is looked for until it runs again. The object lives as long as the process.
class LiveSandbox {
public:
    LiveSandbox(std::string address, History& history);
    LiveSandbox(const LiveSandbox&) = delete;
    LiveSandbox& operator=(const LiveSandbox&) = delete;

    // Receives the lines of the application's stderr, each as a datagram, at an abstract socket of this name.
    void ReadLog(const std::string& socketName);
    // Returns the beginning of the lines' times, in microseconds since the epoch.
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
    link::ConnectionOwner connection_;
    std::unique_ptr<BusTrace> trace_;
    RecordedMessages messages_;
    std::string home_;
    const char* bus_ = "";
};

} // namespace kiv::sandbox
