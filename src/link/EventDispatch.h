#pragma once

#include <gio/gio.h>

namespace kiv::link {

// The client object's method handler.
void NamClientReceiveHandleEvent(
    GDBusConnection* connection, const gchar* sender, const gchar* objectPath, const gchar* interfaceName,
    const gchar* methodName, GVariant* parameters, GDBusMethodInvocation* invocation, gpointer userData);

// Answers the server if there are parameters, then passes the event on. Takes the invocation; returns whether there was
// a payload.
bool NamNotifySubscriber(GVariant* parameters, GDBusMethodInvocation* invocation);

} // namespace kiv::link
