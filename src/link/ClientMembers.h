#pragma once

#include "KivServiceInterface.h"
#include "link/Owners.h"

namespace kiv::link {

/*
 * The members of a client that several threads share. They are plain strings and pointers because hosts know them as
 * such, so they are read and written through these functions alone, each of which is a few instructions under a lock.
 */

ConnectionOwner HeldConnection(const CNSGdbus& client);
// The client takes a reference, and is ready.
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
