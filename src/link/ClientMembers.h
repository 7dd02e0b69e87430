#pragma once

#include "KivServiceInterface.h"
#include "link/Owners.h"

namespace kiv::link {

// The members of a client that several threads share. Hosts see them as plain strings and pointers, so the lock cannot
// be part of them. The library reads and writes them through these functions alone, each of which runs a few
// instructions under the lock.

ConnectionOwner HeldConnection(const CNSGdbus& client);
// Gives the client a reference to the connection, and sets m_bProxyReady.
void HoldConnection(CNSGdbus& client, GDBusConnection* connection);
void DropConnection(CNSGdbus& client);
void DropConnectionIfClosed(CNSGdbus& client);

TextOwner ClientId(const CNSGdbus& client);
bool HasClientId(const CNSGdbus& client, const char* id);
void SetClientId(CNSGdbus& client, const char* id);

TextOwner IntrospectionXml(const CNSGdbus& client);
GDBusInterfaceVTable InterfaceVTable(const CNSGdbus& client);
void SetTemplate(CNSGdbus& client, const char* xml, const GDBusInterfaceVTable& vtable);

} // namespace kiv::link
