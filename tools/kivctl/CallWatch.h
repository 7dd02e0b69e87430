#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace kiv::ctl {

/*
 * The library makes its calls over the connection that GLib shares in the process, so kivctl sees there what is asked
 * and what is answered, and tells why a request fails. CallLog.h tells whether it did.
 */

struct SeenCall {
    enum class Outcome { kUnanswered, kAnswered, kError };

    std::string method;
    Outcome outcome = Outcome::kUnanswered;
    std::string error = {}; // "NAME: TEXT"
    bool isOfBus = false;   // the error is the bus's own, not the server's
    std::string type = {};  // the D-Bus type of an answer
    bool isRefusal = false; // the answer is the number -1
    std::string text = {};  // the first value of an answer, if that is a text
    size_t size = 0;        // of the answer, in bytes
};

struct SeenCalls {
    bool connecting = false;            // the bus has not answered yet
    std::string noBus;                  // why there is no connection
    bool lost = false;                  // the connection was closed
    std::optional<SeenCall> ownerQuery; // the last question to the bus whether the server runs
    bool serverGone = false;            // the bus answered that last
    std::optional<SeenCall> server;     // the last call on the server
};

// Begins to watch. It waits as long as the library would for a bus that does not answer.
void WatchCalls();

// Any thread may call it.
SeenCalls CallsSeen();

// The library may go on in the background after a first attempt that failed. This keeps what was seen up to then.
void KeepFirstAttempt();
SeenCalls CallsSeenInFirstAttempt();

} // namespace kiv::ctl
