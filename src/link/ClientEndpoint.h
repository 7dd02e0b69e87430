#pragma once

#include "KivServiceInterface.h"

namespace kiv::link {

// What every call hands to GetProxy(): the client object as the server calls it, and who handles it.
extern const char* const kClientXml;
extern const GDBusInterfaceVTable kClientVTable;

// Sees to it that events reach the client over this connection, after the server gave it its id there: starts the
// monitor thread if there never was one, and has it move to a connection that replaced a lost one.
void ServeEvents(CNSGdbus& client, GDBusConnection* connection);

// Has the monitor thread give up the client's bus name and what it holds of a lost connection; does not wait for it.
void ReleaseClientName();

// Whether GIO has to do with the client's bus name.
bool IsClientNameInUse();

bool IsMonitorThread();

} // namespace kiv::link
