// What Python cannot do by itself with the library: handle vectors, use a class, and wait on the bus.

#include <KivServiceInterface.h>

#include <cstddef>
#include <string>
#include <vector>

// A reference to a vector travels as its address. C linkage is for the names: the vectors' users look at no type.
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

namespace {

constexpr const char* kClientNamePrefix = "org.lumra.tv.networkspeaker.client.";

struct Watch {
    bool owned = false;
    bool lost = false;
};

void OnOwned(GDBusConnection* /*bus*/, const char* /*name*/, const char* /*owner*/, gpointer watch)
{
    static_cast<Watch*>(watch)->owned = true;
}

void OnNotOwned(GDBusConnection* bus, const char* /*name*/, gpointer watch)
{
    static_cast<Watch*>(watch)->lost = bus == nullptr;
}

bool WaitForOwner(GDBusConnection* bus, GMainContext* context, const std::string& name)
{
    Watch watch;
    const guint id = g_bus_watch_name_on_connection(
        bus, name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, OnOwned, OnNotOwned, &watch, nullptr);
    while (!watch.owned && !watch.lost) {
        g_main_context_iteration(context, TRUE);
    }
    g_bus_unwatch_name(id);
    return watch.owned;
}

} // namespace

// The client object is on the bus as soon as the client's name has an owner.
extern "C" KIV_API bool AwaitEvents()
{
    const CNSGdbus& client = *CNSGdbus::m_pInstance;
    if (!client.m_bProxyReady || client.m_MonitorThread == 0) {
        return false;
    }
    const std::string name = kClientNamePrefix + client.m_strClientName;
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    if (address == nullptr || g_dbus_is_name(name.c_str()) == FALSE) {
        return false;
    }
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_autoptr(GMainContext) context = g_main_context_new();
    g_main_context_push_thread_default(context);
    g_autoptr(GDBusConnection) bus = g_dbus_connection_new_for_address_sync(address, kFlags, nullptr, nullptr, nullptr);
    const bool owned = bus != nullptr && WaitForOwner(bus, context, name);
    g_main_context_pop_thread_default(context);
    return owned;
}

extern "C" KIV_API int DestroyMessageMonitor()
{
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
