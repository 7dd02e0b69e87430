#pragma once

#include "src/link/Owners.h"
#include "tools/kivctl/Command.h"
#include "tools/kivctl/Layout.h"
#include <KivServiceInterface.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace kiv::ctl {

struct MonitorOptions {
    int count = 0; // 0 means no limit
    std::string name = "kivctl";
    bool raw = false;
    Layout layout;
};

// Shows the server's events until it is told to end, has shown enough, or loses the bus. Waits for a server that does
// not run, and asks a server that comes back for events again. There can be one monitor at a time.
class Monitor {
public:
    Monitor(MonitorOptions options, const Output& output);
    ~Monitor();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    // Returns after the end, but not while a call of the library runs. Calls the function before the last calls of the
    // library.
    void Run(const std::function<void()>& ending);

    // Any thread may call these, also while Run() runs.
    void End();
    Result Outcome();
    bool HasShownEvents() const { return shown_ > 0; }

private:
    static void OnEvent(int id, void* data, int length);
    static void OnAtmos(int supported, void* monitor);
    static gboolean OnNextTry(gpointer monitor);
    static gboolean OnNotReady(gpointer monitor);
    static void OnBusLost(GDBusConnection* bus, gboolean vanished, GError* error, gpointer monitor);
    static void OnNameOwned(GDBusConnection* bus, const char* name, const char* owner, gpointer monitor);
    static void OnNameNotOwned(GDBusConnection* bus, const char* name, gpointer monitor);
    static void OnServer(GDBusConnection* bus, const char* name, const char* owner, gpointer monitor);
    static void OnNoServer(GDBusConnection* bus, const char* name, gpointer monitor);

    void StartServerOrWait();
    void WatchEvents();
    // Try() asks the server for events. TryLater() does so after a pause.
    void TrySoon();
    void TryLater();
    void Try();
    // Makes a request to the server, and says so if the answer takes more than a moment.
    int Ask(const std::function<int()>& request) const;
    // Returns the failure if there is one.
    std::optional<Result> AskForEvents() const;
    void Subscribe();
    void SubscribeAgain();
    void FailUnlessGone(const Result& failed);
    bool IsServerGone() const;
    void CountEnd();
    void TellEnds();
    void WatchClient();
    void ExpectClient();
    void Fail(Result result);
    // Notes the reason why no event can come yet.
    void SetMissing(const std::string& missing);
    void Tell(const std::string& text, const Json& object) const;
    void TellNotReady(const std::string& reason, const std::string& advice);

    using Clock = std::chrono::steady_clock;

    const MonitorOptions options_;
    const Output& output_;
    link::ConnectionOwner bus_;
    bool subscribed_ = false;
    bool serverThere_ = false;
    bool serverTold_ = false; // the user was told that the server is there
    Clock::time_point serverCame_;
    int earlyEnds_ = 0; // of the server, soon after it came or before it answered; reset when it has lived longer
    bool endsTold_ = false;
    std::string client_; // the bus name of the client; empty before the first subscription
    guint clientWatch_ = 0;
    guint patience_ = 0; // the timer after which the client's name should have an owner
    guint nextTry_ = 0;  // the timer of the next try
    std::atomic<int> shown_ = 0;
    std::atomic<bool> wasReady_ = false;
    std::atomic<bool> ended_ = false;
    std::mutex mutex_;
    // The mutex guards these two members.
    std::optional<Result> failure_;
    std::string missing_;
};

} // namespace kiv::ctl
