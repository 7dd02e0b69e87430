#pragma once

#include <gio/gio.h>

namespace kiv::link {

// Handles a method call on the client object.
void NamClientReceiveHandleEvent(
    GDBusConnection* connection, const gchar* sender, const gchar* objectPath, const gchar* interfaceName,
    const gchar* methodName, GVariant* parameters, GDBusMethodInvocation* invocation, gpointer userData);

// Answers the server if there are parameters, then passes the event to its receivers. Takes over the invocation.
// Returns whether there was a payload.
bool NamNotifySubscriber(GVariant* parameters, GDBusMethodInvocation* invocation);

} // namespace kiv::link
