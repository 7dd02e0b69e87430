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
    bool isOfBus = false;      // the bus itself does not answer any more, so no other check of it makes sense
    bool hindersOthers = true; // as a problem: the checks that need this one make no sense
    bool isUnproven = false;   // as a note: the step may fail in a way that this process cannot see
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
    GVariant* AskForId(GError** error);
    // The advice for an answer that is the error "NAME: TEXT", and for no answer if that is empty.
    std::string ServerAdvice(const std::string& error);
    Finding LookAtSubscription();
    Finding WhyNotSubscribed();

    GDBusConnection* bus_ = nullptr;
    std::string id_;
    bool subscribed_ = false;
};

struct Check {
    const char* subject;
    const char* pending; // what is awaited
    int limitSeconds;    // of the wait; 0 for a check that asks nobody
    std::vector<const char*> needs;
    Finding (Checks::*examine)();
};

// In the order in which they are made.
const std::vector<Check>& AllChecks();

// The wait of Unsubscribe.
inline constexpr const char* kUnsubscribePending = "taking the subscription back";
inline constexpr int kUnsubscribeLimitSeconds = 24;

} // namespace kiv::ctl
