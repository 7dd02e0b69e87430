#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kiv::sandbox {

// A private bus has one of these faults:
//
// - none
// - deny-name: no process gets the name of a client
// - deny-events: no process may send events, not even the server
// - hang: the daemon is stopped, and answers nothing
// - gone: the daemon has been killed. Any other fault makes the sandbox start it again
extern const std::vector<std::string> kBusFaults;

// The additional configuration of a private bus that can have faults.
extern const std::string kBusFaultConfig;

// Replaces the fault of a private bus. Throws std::runtime_error if the bus cannot have faults.
void SetBusFault(const std::string& address, const std::string& fault);

// Returns the fault that a private bus has now. Throws std::runtime_error as SetBusFault() does.
std::string BusFault(const std::string& address);

// Returns whether the daemon of a bus is stopped, so that it would never answer a connection.
bool BusHangs(const std::string& address);

// Returns whether the daemon of a private bus has ended, while its sandbox still runs.
bool BusIsGone(const std::string& address);

// Throws std::runtime_error, which says what to do, if the daemon of a private bus is stopped or has ended. A
// connection to it would wait for an answer, or fail.
void RequireAnsweringBus(const std::string& address);

// Returns whether a SetBusFault() of any process waits for the sandbox to start the bus again.
bool IsRestartWanted(const std::filesystem::path& busDirectory);
// Lets that SetBusFault() return, because the bus runs again.
void ConfirmRestart(const std::filesystem::path& busDirectory);

// Returns whether a process was stopped by a signal.
bool IsStopped(pid_t process);

} // namespace kiv::sandbox
