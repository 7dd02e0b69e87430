#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kiv::bench {

// Receives the server's events, and passes each on to all subscribers.
struct EventPeer {
    using Subscriber = void (*)(int id, void* data, int length);

    virtual ~EventPeer() = default;

    // By which the server finds it. Its bus name has an owner, or will soon have.
    virtual std::string Id() const = 0;
    // That many subscribers instead of those that there were, which are all the same function.
    virtual void Subscribe(unsigned count, Subscriber subscriber) = 0;
};

std::unique_ptr<EventPeer> MakeLibraryEvents(const std::string& file);
std::unique_ptr<EventPeer> MakeGioEvents();
std::unique_ptr<EventPeer> MakeSdBusEvents();

// What the peers that are not the library do with an event: take it apart, copy its data, tell subscribers.
void TellSubscribers(const std::vector<EventPeer::Subscriber>& subscribers, const void* payload, std::size_t size);

} // namespace kiv::bench
