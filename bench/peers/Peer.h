#pragma once

#include "bench/Requests.h"

#include <memory>
#include <stdexcept>
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

// A peer that sends each of the messages itself.
class MessagePeer : public Peer {
public:
    long Call(const Request& request) override
    {
        CheckOwner();
        Send(kIdRequest);
        CheckOwner();
        return Send(request);
    }

private:
    // Sends one message, and returns its answer as Call() does.
    virtual long Send(const Request& request) = 0;

    void CheckOwner()
    {
        if (Send(kOwnerRequest) == 0) {
            throw std::runtime_error("no server");
        }
    }
};

std::unique_ptr<Peer> MakeLibraryPeer(const std::string& file);

// Uses the connection that the process shares, as the library does.
std::unique_ptr<Peer> MakeGioPeer();

// Each of these peers has a connection of its own, so one serves one thread.
std::unique_ptr<Peer> MakeLibdbusPeer();
std::unique_ptr<Peer> MakeSdBusPeer();

} // namespace kiv::bench
