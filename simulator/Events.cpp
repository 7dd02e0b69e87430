#include "simulator/Events.h"

#include <utility>

namespace kiv::simulator {

namespace {

void AppendInt32(Bytes& bytes, std::int32_t value)
{
    const auto bits = static_cast<std::uint32_t>(value);
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<std::uint8_t>(bits >> shift));
    }
}

} // namespace

Variant EventPayload(std::int32_t eventId, const Bytes& data)
{
    Bytes bytes;
    AppendInt32(bytes, eventId);
    AppendInt32(bytes, static_cast<std::int32_t>(data.size()));
    bytes.insert(bytes.end(), data.begin(), data.end());
    return Own(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1));
}

Bytes EventData(std::int32_t value)
{
    Bytes bytes;
    AppendInt32(bytes, value);
    return bytes;
}

void Announce(const ClientLink& link, const Clients& clients, const Variant& payload, std::function<void()> onAnnounced)
{
    std::vector<std::string> ids = clients.SubscribedIds();
    std::erase_if(ids, [](const std::string& id) { return !ClientLink::IsUsable(id); });
    link.Push(ids, payload, 1, [onAnnounced = std::move(onAnnounced)](const PushResult&) { onAnnounced(); });
}

} // namespace kiv::simulator
