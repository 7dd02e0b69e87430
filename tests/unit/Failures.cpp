#include "unit/Failures.h"

#include "KivServiceInterface.h"

#include <gio/gio.h>
#include <pthread.h>

#include <cerrno>
#include <cstdarg>
#include <utility>

namespace kiv::test {

Failure g_calloc;
Failure g_variant;
Failure g_messages;
Failure g_replies;
Failure g_contexts;
Failure g_nodeInfo;
Failure g_bus;
Failure g_busError;
Failure g_registration;
Failure g_thread;
std::atomic<int> g_monitorThreads;
std::atomic<bool> g_isJoining;
std::function<void(GDBusConnection* opened)> g_afterOpening;

} // namespace kiv::test

using namespace kiv::test;

// These functions are visible, because libraries that call the originals call them, too.
#pragma GCC visibility push(default)

extern "C" {

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return g_calloc.Strikes() ? nullptr : __real_calloc(count, size);
}

GVariant* __wrap_g_variant_new(const gchar* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    GVariant* value = g_variant.Strikes(format) ? nullptr : g_variant_new_va(format, nullptr, &arguments);
    va_end(arguments);
    return value;
}

GDBusMessage* __real_g_dbus_message_copy(GDBusMessage* message, GError** error);
GDBusMessage* __wrap_g_dbus_message_copy(GDBusMessage* message, GError** error)
{
    return g_messages.Strikes(g_dbus_message_get_member(message)) ? nullptr
                                                                  : __real_g_dbus_message_copy(message, error);
}

GVariant* __real_g_dbus_connection_call_sync(
    GDBusConnection* connection, const gchar* name, const gchar* path, const gchar* interface, const gchar* method,
    GVariant* parameters, const GVariantType* replyType, GDBusCallFlags flags, gint timeout, GCancellable* cancellable,
    GError** error);
GVariant* __wrap_g_dbus_connection_call_sync(
    GDBusConnection* connection, const gchar* name, const gchar* path, const gchar* interface, const gchar* method,
    GVariant* parameters, const GVariantType* replyType, GDBusCallFlags flags, gint timeout, GCancellable* cancellable,
    GError** error)
{
    return g_replies.Strikes(method) ? nullptr
                                     : __real_g_dbus_connection_call_sync(
                                           connection, name, path, interface, method, parameters, replyType, flags,
                                           timeout, cancellable, error);
}

GMainContext* __real_g_main_context_new();
GMainContext* __wrap_g_main_context_new()
{
    return g_contexts.Strikes() ? nullptr : __real_g_main_context_new();
}

GDBusNodeInfo* __real_g_dbus_node_info_new_for_xml(const gchar* xml, GError** error);
GDBusNodeInfo* __wrap_g_dbus_node_info_new_for_xml(const gchar* xml, GError** error)
{
    return g_nodeInfo.Strikes() ? nullptr : __real_g_dbus_node_info_new_for_xml(xml, error);
}

GDBusConnection* __real_g_bus_get_sync(GBusType type, GCancellable* cancellable, GError** error);
GDBusConnection* __wrap_g_bus_get_sync(GBusType type, GCancellable* cancellable, GError** error)
{
    if (g_busError.Strikes()) {
        g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED, "of another time");
        return nullptr;
    }
    return g_bus.Strikes() ? nullptr : __real_g_bus_get_sync(type, cancellable, error);
}

gboolean __real_g_initable_init(GInitable* object, GCancellable* cancellable, GError** error);
gboolean __wrap_g_initable_init(GInitable* object, GCancellable* cancellable, GError** error)
{
    const gboolean isOpen = __real_g_initable_init(object, cancellable, error);
    if (const auto action = std::exchange(g_afterOpening, nullptr)) {
        action(G_DBUS_CONNECTION(object));
    }
    return isOpen;
}

guint __real_g_dbus_connection_register_object(
    GDBusConnection* connection, const gchar* path, GDBusInterfaceInfo* interface, const GDBusInterfaceVTable* vtable,
    gpointer data, GDestroyNotify free, GError** error);
guint __wrap_g_dbus_connection_register_object(
    GDBusConnection* connection, const gchar* path, GDBusInterfaceInfo* interface, const GDBusInterfaceVTable* vtable,
    gpointer data, GDestroyNotify free, GError** error)
{
    return g_registration.Strikes()
               ? 0
               : __real_g_dbus_connection_register_object(connection, path, interface, vtable, data, free, error);
}

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument)
{
    if (body == CNSGdbus::m_Monitor) {
        ++g_monitorThreads;
        if (g_thread.Strikes()) {
            return EAGAIN;
        }
    }
    return __real_pthread_create(thread, attributes, body, argument);
}

int __real_pthread_join(pthread_t thread, void** result);
int __wrap_pthread_join(pthread_t thread, void** result)
{
    g_isJoining = true;
    return __real_pthread_join(thread, result);
}
}

#pragma GCC visibility pop
