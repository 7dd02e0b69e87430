#pragma once

#include "simulator/ClientLink.h"
#include "simulator/Clients.h"
#include "simulator/Glib.h"
#include "simulator/Volumes.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::simulator {

inline constexpr std::int32_t kAtmosEvent = 0x02020028;
inline constexpr std::int32_t kExitEvent = 0x02020031;
/** The simulator's own. */
inline constexpr std::int32_t kVolumeEvent = 0x02020040;

/** The bytes of an event: id, length of the data, data. */
Variant EventPayload(std::int32_t eventId, const Bytes& data);

/** An int32 as event data. */
Bytes EventData(std::int32_t value);

/** Those of the ids that a client can have. */
std::vector<std::string> Usable(std::vector<std::string> ids);

/** Pushes the event to every subscribed client. */
void Announce(const ClientLink& link, const Clients& clients, const Variant& payload, ClientLink::OnPushed onAnnounced);

/** Pushes the volumes that were read or set to every subscribed client, if there are any. */
void AnnounceVolumes(
    const ClientLink& link, const Clients& clients, Volumes& volumes, ClientLink::OnPushed onAnnounced);

} // namespace kiv::simulator
