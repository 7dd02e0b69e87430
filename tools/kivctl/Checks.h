#pragma once

#include "src/link/Owners.h"
#include "tools/kivctl/Command.h"

#include <gio/gio.h>

#include <string>
#include <vector>

namespace kiv::ctl {

enum class State { kOk, kNote, kProblem, kSkipped };

struct Finding {
    State state;
    std::string text;
    std::string advice = {};
    bool isOfBus = false;      // the bus does not answer any more, so all checks that need it are left out
    bool hindersOthers = true; // a problem here: the checks that need this one are left out
    bool isUnproven = false;   // a note here: the step may fail in a way that this process cannot see
};

// Checks the steps of calls and events. A step needs earlier ones to have succeeded; AllChecks() names them.
class Checks {
public:
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

    // Takes the subscription back if there is one.
    void Unsubscribe();

private:
    link::VariantOwner AskForId(GError** error);
    // Returns the advice for the answer "NAME: TEXT" of an error, or for no answer if it is empty.
    std::string ServerAdvice(const std::string& error);
    Finding LookAtSubscription();
    Finding WhyNotSubscribed();

    link::ConnectionOwner bus_;
    std::string id_;
    bool subscribed_ = false;
};

struct Check {
    const char* subject;
    const char* pending; // the thing that the check waits for
    int limitSeconds;    // of the wait, or 0 for a check that asks no peer
    std::vector<const char*> needs;
    Finding (Checks::*examine)();
};

// Returns the checks in the order in which they are made.
const std::vector<Check>& AllChecks();

// The thing that Unsubscribe() waits for, and for how long.
inline constexpr const char* kUnsubscribePending = "taking the subscription back";
inline constexpr int kUnsubscribeLimitSeconds = 24;

} // namespace kiv::ctl
