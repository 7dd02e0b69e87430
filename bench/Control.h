#pragma once

#include "src/link/Owners.h"

#include <cstddef>
#include <string>

namespace kiv::bench {

// Controls the server of the benchmarks. Failures are thrown as std::runtime_error.
class Control {
public:
    Control();

    void SetListBytes(std::size_t count) const;
    // Makes the server send events to a client, and returns when all have been answered.
    void Push(const std::string& id, unsigned count, unsigned outstanding) const;
    // Returns when the client's name has an owner.
    void WaitForClient(const std::string& id) const;
    // Returns the process that owns a name.
    pid_t ProcessOf(const char* name) const;

private:
    link::ConnectionOwner bus_;
};

// WaitForEvents() returns when OnEvent() has been called as many times as ExpectEvents() said.
void ExpectEvents(long count);
void OnEvent(int id, void* data, int length);
void WaitForEvents();

} // namespace kiv::bench
