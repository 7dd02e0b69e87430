#pragma once

#include "Command.h"
#include <KivServiceInterface.h>

#include <atomic>
#include <string>

namespace kiv::ctl {

struct MonitorOptions {
    int count = 0; // 0: no end
    std::string name = "kivctl";
    bool raw = false;
};

// Shows the server's events until it is interrupted, has seen enough, or loses the bus. A server that comes back is
// asked for events again. There can be one at a time.
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
    static gboolean OnInterrupt(gpointer monitor);
    static void OnNameOwned(GDBusConnection* bus, const char* name, const char* owner, gpointer monitor);
    static void OnNameNotOwned(GDBusConnection* bus, const char* name, gpointer monitor);
    static void OnServer(GDBusConnection* bus, const char* name, const char* owner, gpointer monitor);
    static void OnNoServer(GDBusConnection* bus, const char* name, gpointer monitor);

    Result Subscribe();
    Result WatchEvents(GDBusConnection* bus);
    void SubscribeAgain();
    void ShowEvent(int id, const unsigned char* data, int length);
    void End();

    const MonitorOptions options_;
    const Output& output_;
    int shown_ = 0; // used by the library's monitor thread only
    bool busLost_ = false;
    std::string server_; // the one that was asked for events; empty when it has gone
    std::atomic<bool> ended_ = false;
};

} // namespace kiv::ctl
