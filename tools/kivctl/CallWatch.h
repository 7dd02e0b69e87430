#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace kiv::ctl {

// Watches the connection that GLib shares in the process, over which the library makes its calls. kivctl sees the calls
// and their answers there, and so finds out why a request fails. CallLog.h finds out whether it failed.

// The time that most functions of the library take at most, while the bus daemon answers.
inline constexpr int kCallLimitSeconds = 32;

struct SeenCall {
    enum class Outcome { kUnanswered, kAnswered, kError };

    std::string method;
    Outcome outcome = Outcome::kUnanswered;
    std::string error = {}; // "NAME: TEXT"
    bool isOfBus = false;   // the error is one of the bus, not of the server
    std::string type = {};  // the D-Bus type of an answer
    bool isRefusal = false; // the answer is the number -1
    std::string text = {};  // the first value of an answer, if it is a text
    size_t size = 0;        // of the answer's body, in bytes
};

struct SeenCalls {
    bool connecting = false;            // the bus has not answered yet
    std::string noBus;                  // the reason why there is no connection
    bool lost = false;                  // the connection was closed
    std::optional<SeenCall> ownerQuery; // the last query whether the server's name has an owner
    bool serverGone = false;            // the last answer of the bus was that the server does not run
    std::optional<SeenCall> server;     // the last call on the server
};

// Begins to watch. Waits for a bus that does not answer as long as the library would.
void WatchCalls();

// Returns the calls seen so far. Any thread may call it.
SeenCalls CallsSeen();

// Keeps the calls seen so far, because the library may go on in the background after its first attempt.
void KeepFirstAttempt();
SeenCalls CallsSeenInFirstAttempt();

} // namespace kiv::ctl
