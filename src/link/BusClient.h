#pragma once

#include "KivServiceInterface.h"
#include "link/Log.h"
#include "link/Owners.h"

namespace kiv::link {

// The library's one client.
extern CNSGdbus& ns_proxy;

// GetProxy() of a client. Gives the connection that it got, or null if GetProxy() is false. Calls that go over this
// connection do not depend on m_pConnection, which another thread's failure clears.
ConnectionOwner
GetProxy(CNSGdbus& client, const char* xml, const GDBusInterfaceVTable& vtable, bool reuse, bool noOwnerCheck);

// MethodCall() over a connection.
bool CallServer(GDBusConnection* connection, const char* method, GVariant* input, GVariant** output, bool noOwnerCheck);

// Takes over the client id that the server answered to a subscription, if it is another one than before; null is no
// answer.
void AdoptClientId(const Here& here, const char* received);

// Ends ns_proxy. At unload only.
void EndClient();

} // namespace kiv::link
