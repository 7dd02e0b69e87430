#pragma once

#include "Requests.h"

#include <memory>
#include <string>

namespace kiv::bench {

// One way to make the four messages of a call: a query for the server's owner, one for this process's id, another for
// the owner, and the method itself. Used by one thread at a time.
struct Peer {
    virtual ~Peer() = default;

    // Returns the answer as a number: an int itself, a bool as 0 or 1, a text as 1, bytes as their number, and an
    // ignored answer as 0. Throws an exception if there is no answer.
    virtual long Call(const Request& request) = 0;
};

std::unique_ptr<Peer> MakeLibraryPeer(const std::string& file);

// These peers use the connection that the process shares.
std::unique_ptr<Peer> MakeGioPeer();
std::unique_ptr<Peer> MakeCodegenPeer();
std::unique_ptr<Peer> MakeQtPeer();

// Each of these peers has a connection of its own, so one serves one thread.
std::unique_ptr<Peer> MakeLibdbusPeer();
std::unique_ptr<Peer> MakeSdBusPeer();
std::unique_ptr<Peer> MakeSdbusCppPeer();

} // namespace kiv::bench
