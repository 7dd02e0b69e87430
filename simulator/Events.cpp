#include "simulator/Events.h"

#include "simulator/Wire.h"

#include <utility>

namespace kiv::simulator {

Variant EventPayload(std::int32_t eventId, const Bytes& data)
{
    const Bytes bytes = Writer().Int32(eventId).Int32(static_cast<std::int32_t>(data.size())).Append(data).Written();
    return Own(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1));
}

Bytes EventData(std::int32_t value)
{
    return Writer().Int32(value).Written();
}

void Announce(const ClientLink& link, const Clients& clients, const Variant& payload, std::function<void()> onAnnounced)
{
    std::vector<std::string> ids = clients.SubscribedIds();
    std::erase_if(ids, [](const std::string& id) { return !ClientLink::IsUsable(id); });
    link.Push(ids, payload, 1, [onAnnounced = std::move(onAnnounced)](const PushResult&) { onAnnounced(); });
}

} // namespace kiv::simulator
