#pragma once

#include "KivServiceInterface.h"

namespace kiv::link {

// Sees to it that events reach the client over this connection, under the id that the server gave it there: starts the
// monitor thread if there never was one, and has it move its endpoint if that stands elsewhere. Does not wait for it.
void ServeEvents(CNSGdbus& client, GDBusConnection* connection, const char* id);

// At unload only.
void ForgetMonitor();

} // namespace kiv::link
