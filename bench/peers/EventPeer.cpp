#include "bench/peers/EventPeer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace kiv::bench {

namespace {

constexpr int kMaxData = 2200;

} // namespace

void TellSubscribers(const std::vector<EventPeer::Subscriber>& subscribers, const void* payload, std::size_t size)
{
    std::int32_t head[2] = {};
    char data[kMaxData] = {};
    if (size < sizeof head) {
        return;
    }
    std::memcpy(head, payload, sizeof head);
    const int length = std::min(head[1], kMaxData);
    if (length > 0) {
        const std::size_t count = std::min(static_cast<std::size_t>(length), size - sizeof head);
        std::memcpy(data, static_cast<const char*>(payload) + sizeof head, count);
    }
    for (const EventPeer::Subscriber subscriber : subscribers) {
        subscriber(head[0], data, length);
    }
}

} // namespace kiv::bench
