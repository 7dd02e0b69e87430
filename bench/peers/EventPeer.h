#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kiv::bench {

// Receives the server's events, and passes each to all subscribers.
struct EventPeer {
    using Subscriber = void (*)(int id, void* data, int length);

    virtual ~EventPeer() = default;

    // Returns the id by which the server finds the client. Its bus name has an owner, or will soon have one.
    virtual std::string Id() const = 0;
    // Replaces the subscribers by this number of new ones, which are all the same function.
    virtual void Subscribe(unsigned count, Subscriber subscriber) = 0;
};

std::unique_ptr<EventPeer> MakeLibraryEvents(const std::string& file);
std::unique_ptr<EventPeer> MakeGioEvents();
std::unique_ptr<EventPeer> MakeSdBusEvents();

// Handles an event for the peers other than the library: decodes it, copies its data and calls the subscribers.
void TellSubscribers(const std::vector<EventPeer::Subscriber>& subscribers, const void* payload, std::size_t size);

} // namespace kiv::bench
