#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kiv::sandbox {

/**
 * The fault of a private bus is one of these:
 *
 * - none
 * - deny-name: nobody gets the name of a client
 * - deny-events: nobody may send events, the server included
 * - hang: the daemon is stopped, and answers nothing
 * - gone: the daemon has been killed. Any other fault has the sandbox start it again
 */
extern const std::vector<std::string> kBusFaults;

/// The extra configuration of a private bus that can have faults.
extern const char* const kBusFaultConfig;

/// Replaces the fault of a private bus. Throws std::runtime_error if the bus cannot have faults.
void SetBusFault(const std::string& address, const std::string& fault);

/// The fault that a private bus has now. Throws std::runtime_error as SetBusFault() does.
std::string BusFault(const std::string& address);

/// Tells whether the daemon of a bus is stopped, so that a connection to it would never be answered.
bool BusHangs(const std::string& address);

/// Tells whether nobody listens at the address of a private bus that is still there.
bool BusIsGone(const std::string& address);

/// Tells the sandbox whether SetBusFault() waits, in whatever process, for the bus to be started again.
bool IsRestartWanted(const std::filesystem::path& busDirectory);
/// Has that SetBusFault() go on, because the bus runs again.
void ConfirmRestart(const std::filesystem::path& busDirectory);

/// Tells whether a process was stopped by a signal.
bool IsStopped(pid_t process);

} // namespace kiv::sandbox
