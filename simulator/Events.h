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
// The simulator's own event. It is not a part of the library's interface.
inline constexpr std::int32_t kVolumeEvent = 0x02020040;

// Returns the bytes of an event: its id, the length of its data, and the data.
Variant EventPayload(std::int32_t eventId, const Bytes& data);

// Returns an int32 as event data.
Bytes EventData(std::int32_t value);

// Returns the ids from which the names of a client can be formed.
std::vector<std::string> Usable(std::vector<std::string> ids);

// Pushes the event to every subscribed client.
void Announce(const ClientLink& link, const Clients& clients, const Variant& payload, ClientLink::OnPushed onAnnounced);

// Pushes the volumes that a call has read or changed to every subscribed client. Pushes nothing if there are none.
void AnnounceVolumes(
    const ClientLink& link, const Clients& clients, Volumes& volumes, ClientLink::OnPushed onAnnounced);

} // namespace kiv::simulator
