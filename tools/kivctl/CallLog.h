#pragma once

#include <optional>
#include <string>

namespace kiv::ctl {

/*
 * The library tells only its log whether a call failed, for example one that returns nothing. kivctl therefore defines
 * the platform's log function, reads each line on its way and passes it on. So it sees the lines that the platform does
 * not print, too. CallWatch.h has the reason if the bus or the server did not answer as usual.
 */

// Tells that the request of this thread's last call failed, with the library's own reason: an answer that it cannot
// take, or a request that it does not send. Returns nothing if it took the answer, or did not reach the server.
std::optional<std::string> RequestFailure();

// Tells whether the first attempt of this thread's last call did not reach the server.
bool FirstAttemptFailed();

} // namespace kiv::ctl
