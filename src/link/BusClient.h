#pragma once

#include "KivServiceInterface.h"
#include "link/Log.h"
#include "link/Owners.h"

#include <string>

namespace kiv::link {

// The library's one client.
extern CNSGdbus& ns_proxy;

// What several threads share of a client is read and written through these, each of which is a few instructions
// under a lock: the members are plain strings and pointers, because hosts know them as such.
ConnectionOwner HeldConnection(const CNSGdbus& client);
std::string ClientName(const CNSGdbus& client);
std::string IntrospectionXml(const CNSGdbus& client);
GDBusInterfaceVTable InterfaceVTable(const CNSGdbus& client);

// Takes over the client name that the server answered to a subscription, if it is another one than before; null is
// no answer.
void AdoptClientName(const Here& here, const char* received);

// Whether what came with a method, a reply or arguments, has the type that can be decoded; if not, says so in the log.
bool IsOfType(const Here& here, const char* method, GVariant* value, const char* expected);

// Keeps a value that its user must not release, until the next such value comes.
void KeepUnreleased(VariantOwner value);

} // namespace kiv::link
