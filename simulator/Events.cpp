#include "simulator/Events.h"

#include "simulator/Wire.h"

#include <utility>

namespace kiv::simulator {

Variant EventPayload(std::int32_t eventId, const Bytes& data)
{
    const Bytes bytes = Writer().Int32(eventId).Int32(static_cast<std::int32_t>(data.size())).Append(data).Written();
    return Own(NewByteArray(bytes));
}

Bytes EventData(std::int32_t value)
{
    return Writer().Int32(value).Written();
}

std::vector<std::string> Usable(std::vector<std::string> ids)
{
    std::erase_if(ids, [](const std::string& id) { return !ClientLink::IsUsable(id); });
    return ids;
}

void Announce(const ClientLink& link, const Clients& clients, const Variant& payload, ClientLink::OnPushed onAnnounced)
{
    link.Push(Usable(clients.SubscribedIds()), payload, 1, std::move(onAnnounced));
}

void AnnounceVolumes(const ClientLink& link, const Clients& clients, Volumes& volumes, ClientLink::OnPushed onAnnounced)
{
    const Bytes report = volumes.TakeReport();
    if (report.empty()) {
        onAnnounced({});
    } else {
        Announce(link, clients, EventPayload(kVolumeEvent, report), std::move(onAnnounced));
    }
}

} // namespace kiv::simulator
