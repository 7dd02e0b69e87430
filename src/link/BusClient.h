#pragma once

#include "KivServiceInterface.h"
#include "link/Log.h"
#include "link/Owners.h"

namespace kiv::link {

// The library's one client object.
extern CNSGdbus& ns_proxy;

// Does the work of CNSGdbus::GetProxy(). Returns the connection, or null where that function returns false. Calls over
// this connection do not depend on m_pConnection, which a failure on another thread clears.
ConnectionOwner
GetProxy(CNSGdbus& client, const char* xml, const GDBusInterfaceVTable& vtable, bool reuse, bool noOwnerCheck);

// Does the work of CNSGdbus::MethodCall(), over this connection.
bool CallServer(GDBusConnection* connection, const char* method, GVariant* input, GVariant** output, bool noOwnerCheck);

// Notes the client id with which the server answered a subscription, if it differs from the known one. Null stands for
// a reply without an id.
void AdoptClientId(const Here& here, const char* received);

// Destroys ns_proxy. Called at unload only.
void EndClient();

} // namespace kiv::link
