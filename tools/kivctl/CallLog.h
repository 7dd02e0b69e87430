#pragma once

#include <optional>
#include <string>

namespace kiv::ctl {

/*
 * The library tells only its log why a call failed, and of a function that returns nothing even whether it did. kivctl
 * therefore defines the platform's log function, reads each line on its way and passes it on. So it sees the lines that
 * the platform does not print, too.
 */

// Why the request of this thread's last call failed. Nothing if the server answered it, or if it was not sent.
std::optional<std::string> RequestFailure();

// Whether the first attempt of this thread's last call did not reach the server.
bool FirstAttemptFailed();

} // namespace kiv::ctl
