#pragma once

#include "Requests.h"

#include <memory>
#include <string>

namespace kiv::bench {

// One way to make a call of four messages: has the server an owner, which id has this process, has the server an owner,
// and the method itself. Used by one thread at a time.
struct Peer {
    virtual ~Peer() = default;

    // The answer as a number: an int itself, a bool as 0 or 1, a text as 1, bytes as their number, one that is ignored
    // as 0. Throws if there is none.
    virtual long Call(const Request& request) = 0;
};

std::unique_ptr<Peer> MakeLibraryPeer(const std::string& file);

// On the connection that the process shares.
std::unique_ptr<Peer> MakeGioPeer();
std::unique_ptr<Peer> MakeCodegenPeer();
std::unique_ptr<Peer> MakeQtPeer();

// On a connection of its own: of these, one serves one thread.
std::unique_ptr<Peer> MakeLibdbusPeer();
std::unique_ptr<Peer> MakeSdBusPeer();
std::unique_ptr<Peer> MakeSdbusCppPeer();

} // namespace kiv::bench
