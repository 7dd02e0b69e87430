#pragma once

#include "KivServiceInterface.h"

namespace kiv::link {

// Makes the client's endpoint stand on this connection, under the id that the server gave it there. Starts the monitor
// thread if it was never started, and otherwise posts the place to it. Does not wait for the thread.
void ServeEvents(CNSGdbus& client, GDBusConnection* connection, const char* id);

// Called at unload only.
void ForgetMonitor();

} // namespace kiv::link
