#pragma once

#include "Command.h"

#include <gio/gio.h>

#include <string>
#include <vector>

namespace kiv::ctl {

enum class State { kOk, kNote, kProblem, kSkipped };

struct Finding {
    State state;
    std::string text;
    std::string advice = {};
};

// The steps of the way that calls and events take. A step needs earlier ones to have succeeded, and kChecks names them.
class Checks {
public:
    Checks() = default;
    ~Checks();
    Checks(const Checks&) = delete;
    Checks& operator=(const Checks&) = delete;

    Finding Feature();
    Finding Bus();
    Finding ClientName();
    Finding Activation();
    Finding Server();
    Finding Call();
    Finding ClientId();
    Finding Subscription();
    Finding Endpoint();
    Finding Events();

    // Takes the subscription back, if there is one.
    void Unsubscribe();

private:
    GVariant* CallServer(const char* method, GError** error);

    GDBusConnection* bus_ = nullptr;
    std::string id_;
    bool subscribed_ = false;
};

struct Check {
    const char* subject;
    const char* pending; // the wait and its limit; null for a check that asks nobody
    std::vector<const char*> needs;
    Finding (Checks::*examine)();
};

// In the order in which they are made.
const std::vector<Check>& AllChecks();

// The wait of Unsubscribe.
inline constexpr const char* kUnsubscribePending = "taking the subscription back, up to 24 s";

} // namespace kiv::ctl
