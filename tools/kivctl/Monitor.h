#pragma once

#include "Command.h"
#include "Layout.h"
#include <KivServiceInterface.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace kiv::ctl {

struct MonitorOptions {
    int count = 0; // 0: no end
    std::optional<std::chrono::milliseconds> duration;
    std::string name = "kivctl";
    bool raw = false;
    Layout layout;
};

// Shows the server's events until it is interrupted, has seen enough, or loses the bus. It waits for a server that is
// not there, and asks one that comes back for events again. There can be one at a time.
class Monitor {
public:
    Monitor(MonitorOptions options, const Output& output);
    ~Monitor();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    Result Run();

private:
    static void OnEvent(int id, void* data, int length);
    static void OnAtmos(int supported, void* monitor);
    static gboolean OnEnd(gpointer monitor);
    static gboolean OnNotReady(gpointer monitor);
    static void OnNameOwned(GDBusConnection* bus, const char* name, const char* owner, gpointer monitor);
    static void OnNameNotOwned(GDBusConnection* bus, const char* name, gpointer monitor);
    static void OnServer(GDBusConnection* bus, const char* name, const char* owner, gpointer monitor);
    static void OnNoServer(GDBusConnection* bus, const char* name, gpointer monitor);

    void StartServerOrWait();
    void CatchSignals();
    void WatchEvents();
    void Subscribe();
    void SubscribeAgain();
    void WatchClient();
    void ExpectClient();
    void Fail(Result result);
    void TellNotReady(const std::string& reason);
    void End();

    const MonitorOptions options_;
    const Output& output_;
    GDBusConnection* bus_ = nullptr;
    int shown_ = 0; // used by the library's monitor thread only
    bool busLost_ = false;
    bool subscribed_ = false;
    bool serverThere_ = false;
    std::string client_; // the bus name by which events come; empty before the first subscription
    guint clientWatch_ = 0;
    guint patience_ = 0;         // the timer that ends when the client's name should have an owner
    std::vector<guint> signals_; // the sources of SIGINT and SIGTERM
    Result result_;
    std::atomic<bool> ended_ = false;
};

} // namespace kiv::ctl
