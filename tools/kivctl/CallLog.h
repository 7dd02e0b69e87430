#pragma once

#include <optional>
#include <string>

namespace kiv::ctl {

// Many functions of the library report a failed call only in the log, for example those that return nothing. So kivctl
// defines the platform's log function, reads each line, and passes it on to the platform. It also reads the lines that
// the platform does not print. CallWatch.h finds out why the bus or the server did not answer as usual.

// Returns the library's reason if the request of this thread's last call failed: the library could not take the answer,
// or did not send the request. Returns nothing if it took the answer, or did not reach the server.
std::optional<std::string> RequestFailure();

// Returns whether the first attempt of this thread's last call did not reach the server.
bool FirstAttemptFailed();

} // namespace kiv::ctl
