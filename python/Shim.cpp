// Does what Python cannot do with the library by itself: handles vectors, uses a class, and waits on the bus.

#include "src/link/Owners.h"
#include <KivServiceInterface.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

// A reference to a vector is passed as its address. The functions have C linkage for their names alone: their callers
// do not look at types.
#define KIV_PYTHON_VECTOR(Record)                                                                        \
    extern "C" KIV_API std::vector<Record>* NewVectorOf_##Record(const Record* first, std::size_t count) \
    {                                                                                                    \
        return new std::vector<Record>(first, first + count);                                            \
    }                                                                                                    \
    extern "C" KIV_API const Record* RecordsOf_##Record(const std::vector<Record>* vector)               \
    {                                                                                                    \
        return vector->data();                                                                           \
    }                                                                                                    \
    extern "C" KIV_API std::size_t CountOf_##Record(const std::vector<Record>* vector)                   \
    {                                                                                                    \
        return vector->size();                                                                           \
    }                                                                                                    \
    extern "C" KIV_API void DeleteVectorOf_##Record(const std::vector<Record>* vector)                   \
    {                                                                                                    \
        delete vector;                                                                                   \
    }

KIV_PYTHON_VECTOR(STNetSpkListInfo)
KIV_PYTHON_VECTOR(spk_info_s)
KIV_PYTHON_VECTOR(CNetSpkNodeInfo)
KIV_PYTHON_VECTOR(STNetSpkConfig)

using namespace kiv::link;

namespace {

constexpr const char* kClientNamePrefix = "org.lumra.tv.networkspeaker.client.";
constexpr int kBusTimeoutMs = 5000;
constexpr const char* kBusGone = "the bus cannot be reached, or is gone";

// Is set when a callback has ended the monitor thread, on which it runs. The library joins it only from another thread.
std::atomic<bool> g_endedByCallback = false;

// A wait until a name is owned. All of it runs on one context, whose sources call the functions below.
struct Wait {
    GCancellable* cancellable = nullptr;
    GAsyncResult* connected = nullptr;
    bool hasNewOwner = false;
    bool timedOut = false;
    bool lost = false;
};

gboolean OnTimeout(gpointer wait)
{
    static_cast<Wait*>(wait)->timedOut = true;
    // Ends a wait for a bus that neither makes nor refuses the connection.
    g_cancellable_cancel(static_cast<Wait*>(wait)->cancellable);
    return G_SOURCE_REMOVE;
}

void OnConnected(GObject* /*source*/, GAsyncResult* result, gpointer wait)
{
    static_cast<Wait*>(wait)->connected = static_cast<GAsyncResult*>(g_object_ref(result));
}

void OnOwned(GDBusConnection* /*bus*/, const char* /*name*/, const char* /*owner*/, gpointer wait)
{
    static_cast<Wait*>(wait)->hasNewOwner = true;
}

void OnNotOwned(GDBusConnection* bus, const char* /*name*/, gpointer wait)
{
    static_cast<Wait*>(wait)->hasNewOwner = false;
    static_cast<Wait*>(wait)->lost = bus == nullptr;
}

GDBusConnection* Connect(GMainContext* context, const char* address, Wait& wait)
{
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_dbus_connection_new_for_address(address, kFlags, nullptr, wait.cancellable, OnConnected, &wait);
    while (wait.connected == nullptr) {
        g_main_context_iteration(context, TRUE);
    }
    const ObjectOwner<GAsyncResult> result(wait.connected);
    return g_dbus_connection_new_for_address_finish(result.get(), nullptr);
}

// Returns null if the bus does not answer.
GVariant* AskBus(GDBusConnection* bus, const char* method, GVariant* arguments, const char* type, int timeoutMs)
{
    constexpr const char* kBus = "org.freedesktop.DBus";
    return g_dbus_connection_call_sync(
        bus, kBus, "/org/freedesktop/DBus", kBus, method, arguments, G_VARIANT_TYPE(type), G_DBUS_CALL_FLAGS_NONE,
        timeoutMs, nullptr, nullptr);
}

bool IsOfThisProcess(GDBusConnection* bus, const std::string& name, int timeoutMs)
{
    const VariantOwner reply(
        AskBus(bus, "GetConnectionUnixProcessID", g_variant_new("(s)", name.c_str()), "(u)", timeoutMs));
    guint32 process = 0;
    if (reply != nullptr) {
        g_variant_get(reply.get(), "(u)", &process);
    }
    return static_cast<pid_t>(process) == getpid();
}

bool WaitUntilOwned(GMainContext* context, const char* address, const std::string& name, int timeoutMs, Wait& wait)
{
    const ConnectionOwner bus(Connect(context, address, wait));
    if (bus == nullptr) {
        return false;
    }
    const guint id = g_bus_watch_name_on_connection(
        bus.get(), name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, OnOwned, OnNotOwned, &wait, nullptr);
    bool isOurs = false;
    while (!isOurs && !wait.lost && !wait.timedOut) {
        g_main_context_iteration(context, TRUE);
        // If another process owns the name, it gets this process's events, and this process waits until it gives the
        // name up.
        isOurs = wait.hasNewOwner && IsOfThisProcess(bus.get(), name, timeoutMs);
        wait.hasNewOwner = false;
    }
    g_bus_unwatch_name(id);
    return isOurs;
}

} // namespace

// Tells whether the library would go on calling over the connection that it holds, whatever bus the environment names.
// Asks the bus, because GIO may not know yet that the connection is lost. No other thread may be calling the library.
extern "C" KIV_API bool IsConnected()
{
    GDBusConnection* const bus = CNSGdbus::m_pInstance->m_pConnection;
    if (bus == nullptr) {
        return false;
    }
    const VariantOwner reply(AskBus(bus, "GetId", nullptr, "(s)", kBusTimeoutMs));
    return reply != nullptr;
}

// Returns null as soon as events can arrive, or else the reason why they cannot. They can arrive when this process owns
// the client's name, because the library registers the client object before it requests the name.
extern "C" KIV_API const char* AwaitEvents(int timeoutMs)
{
    const CNSGdbus& client = *CNSGdbus::m_pInstance;
    if (!client.m_bProxyReady && g_KivDisabled) {
        return "this device has no network speakers, so the library makes no call";
    }
    if (!client.m_bProxyReady) {
        return "no call was made on this bus, or the last one did not reach the server";
    }
    if (client.m_MonitorThread == 0 || g_endedByCallback) {
        return "the monitor thread has ended, so that no event can come any more";
    }
    const std::string name = kClientNamePrefix + client.m_strClientName;
    const TextOwner address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    if (g_dbus_is_name(name.c_str()) == FALSE) {
        return "the client id that the server gave is not valid in a D-Bus name";
    }
    if (address == nullptr) {
        return kBusGone;
    }
    const ContextOwner context(g_main_context_new());
    g_main_context_push_thread_default(context.get());
    const CancellableOwner cancellable(g_cancellable_new());
    Wait wait{.cancellable = cancellable.get()};
    const SourceOwner limit(g_timeout_source_new(static_cast<guint>(timeoutMs)));
    g_source_set_callback(limit.get(), OnTimeout, &wait, nullptr);
    g_source_attach(limit.get(), context.get());
    const bool owned = WaitUntilOwned(context.get(), address.get(), name, timeoutMs, wait);
    g_source_destroy(limit.get());
    g_main_context_pop_thread_default(context.get());
    if (owned) {
        return nullptr;
    }
    return wait.timedOut ? "the bus has not given this process its client's name in time: \"kivctl doctor\" tells why"
                         : kBusGone;
}

extern "C" KIV_API void GiveProxy()
{
    CNSGdbus::m_pInstance->GiveProxy();
}

extern "C" KIV_API int DestroyMessageMonitor()
{
    const int result = CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
    if (result == EDEADLK) {
        g_endedByCallback = true;
    }
    return result;
}
