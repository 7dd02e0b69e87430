#include "link/ClientEndpoint.h"

#include "link/BusClient.h"
#include "link/EventDispatch.h"
#include "link/LibraryPin.h"
#include "link/Owners.h"
#include "link/SystemBus.h"

#include <atomic>
#include <cerrno>
#include <mutex>
#include <string>
#include <utility>

namespace kiv::link {

const GDBusInterfaceVTable kClientVTable = {NamClientReceiveHandleEvent, nullptr, nullptr, {}};

namespace {

constexpr const char* kClientNamePrefix = "org.lumra.tv.networkspeaker.client.";
constexpr const char* kClientPathPrefix = "/org/lumra/tv/networkspeaker/client/";
constexpr std::string_view kIdPlaceholder = "%s";

// Longer than GIO waits for an answer of the bus.
constexpr guint kDrainSeconds = 30;

// The connection that the endpoint is for. Weak, because a closed one must be let go before there can be a new one.
GWeakRef g_servedOn;

ConnectionOwner ServedOn()
{
    return ConnectionOwner(static_cast<GDBusConnection*>(g_weak_ref_get(&g_servedOn)));
}

/*
 * The client's bus name, owned on the monitor thread, in whose context everything arrives that is sent to it. The
 * object's registration is kept in the client, where hosts know it.
 */
class ClientEndpoint {
public:
    ClientEndpoint(CNSGdbus& client, const Here& here) : client_(client), here_(here) {}

    // Opens it, or opens it anew if the connection is another one. False if the id that the server gave allows none.
    bool Follow();
    void Close();
    // Leaves alone what has been opened on a connection that lives.
    void CloseIfLost();

private:
    bool Open(const ConnectionOwner& connection);
    bool ParseXml(const std::string& id);
    // On the connection that the process shares, or on another one.
    guint OwnName(const char* name) const;
    guint OwnName(GDBusConnection* connection, const char* name) const;

    CNSGdbus& client_;
    const Here here_;
    guint nameOwner_ = 0;
};

// Owned names that GIO has not done with, for each of which it will call OnNameDone().
std::atomic<int> g_namesInUse = 0;

void OnNameDone(gpointer /*client*/)
{
    --g_namesInUse;
}

// The running monitor thread, as far as others ask things of it.
struct Monitor {
    pthread_t thread = 0;
    GMainContext* context = nullptr;
    ClientEndpoint* endpoint = nullptr;
};

// Guards g_monitor, and the start and the end of the thread against one another.
std::mutex g_lifecycle;
// Whoever ends the thread while another does waits for the end as well.
std::mutex g_joining;
Monitor g_monitor;
std::atomic<bool> s_bMonitorStarted = false;
void* g_pin = nullptr; // of the monitor thread
std::atomic<bool> g_endRequested = false;

void LogUnfitId(const Here& here, const std::string& id)
{
    KIV_LOG_AT(here, kLogError, "[%s] client id [%s] fits no D-Bus name, path or interface", kApiTag, id.c_str());
}

std::string ObjectPath(const std::string& id)
{
    return kClientPathPrefix + id;
}

std::string FillIn(std::string xml, const std::string& id)
{
    const std::size_t at = xml.find(kIdPlaceholder);
    return at == std::string::npos ? xml : xml.replace(at, kIdPlaceholder.size(), id);
}

bool HasInterface(const GDBusNodeInfo& node)
{
    return node.interfaces != nullptr && node.interfaces[0] != nullptr;
}

bool ClientEndpoint::Follow()
{
    CloseIfLost(); // first, because whoever looks for a connection just now waits for that
    // Without a connection to share, GIO would open one for the name, whose loss would end the host.
    const ConnectionOwner connection = GetSystemBus(HeldConnection(client_), nullptr);
    if (connection && connection == ServedOn()) {
        return true;
    }
    Close();
    g_weak_ref_set(&g_servedOn, connection.get());
    return Open(connection);
}

bool ClientEndpoint::Open(const ConnectionOwner& connection)
{
    const std::string id = ClientName(client_);
    const std::string name = kClientNamePrefix + id;
    // Checked first, so that nothing of an id that is no name gets into the XML.
    if (g_dbus_is_name(name.c_str()) == FALSE || g_variant_is_object_path(ObjectPath(id).c_str()) == FALSE) {
        LogUnfitId(here_, id);
        return false;
    }
    if (!ParseXml(id)) {
        return false;
    }
    if (connection) {
        ++g_namesInUse;
        nameOwner_ = IsPrivate(connection.get()) ? OwnName(connection.get(), name.c_str()) : OwnName(name.c_str());
    }
    return true;
}

guint ClientEndpoint::OwnName(const char* name) const
{
    return g_bus_own_name(
        G_BUS_TYPE_SYSTEM, name, G_BUS_NAME_OWNER_FLAGS_NONE, CNSGdbus::m_OnbusAcquired, CNSGdbus::m_OnnameAcquired,
        CNSGdbus::m_OnnameLost, &client_, OnNameDone);
}

guint ClientEndpoint::OwnName(GDBusConnection* connection, const char* name) const
{
    CNSGdbus::m_OnbusAcquired(connection, name, &client_);
    return g_bus_own_name_on_connection(
        connection, name, G_BUS_NAME_OWNER_FLAGS_NONE, CNSGdbus::m_OnnameAcquired, CNSGdbus::m_OnnameLost, &client_,
        OnNameDone);
}

bool ClientEndpoint::ParseXml(const std::string& id)
{
    GError* failure = nullptr;
    client_.m_pDbusNodeInfo = g_dbus_node_info_new_for_xml(FillIn(IntrospectionXml(client_), id).c_str(), &failure);
    if (failure != nullptr) {
        KIV_LOG_AT(here_, kLogError, "pError is not NULL");
        g_error_free(failure);
        return false;
    }
    if (client_.m_pDbusNodeInfo == nullptr) {
        KIV_LOG_AT(here_, kLogError, "m_pDbusNodeInfo is NULL");
        return false;
    }
    if (!HasInterface(*client_.m_pDbusNodeInfo)) {
        KIV_LOG_AT(here_, kLogError, "[%s] the introspection XML has no interface", kApiTag);
        return false;
    }
    if (g_dbus_is_interface_name(client_.m_pDbusNodeInfo->interfaces[0]->name) == FALSE) {
        LogUnfitId(here_, id);
        return false;
    }
    return true;
}

void ClientEndpoint::Close()
{
    if (nameOwner_ != 0) {
        const std::lock_guard lock(ClosedDelivery());
        g_bus_unown_name(std::exchange(nameOwner_, 0));
    }
    g_clear_pointer(&client_.m_pDbusNodeInfo, g_dbus_node_info_unref);
    const guint registration = std::exchange(client_.m_nRegistrationId, 0);
    const ConnectionOwner connection = ServedOn();
    if (connection && registration != 0) {
        g_dbus_connection_unregister_object(connection.get(), registration);
    }
    g_weak_ref_set(&g_servedOn, nullptr);
}

void ClientEndpoint::CloseIfLost()
{
    const ConnectionOwner connection = ServedOn();
    if (!connection || g_dbus_connection_is_closed(connection.get()) != FALSE) {
        Close();
    }
}

void Attach(GMainContext* context, GSourceFunc function, gpointer data)
{
    const SourceOwner source(g_idle_source_new());
    g_source_set_priority(source.get(), G_PRIORITY_DEFAULT);
    g_source_set_callback(source.get(), function, data, nullptr);
    g_source_attach(source.get(), context);
}

ClientEndpoint* PublishedEndpoint()
{
    const std::lock_guard lock(g_lifecycle);
    return g_monitor.endpoint;
}

// A task that the monitor thread gets to at its end only is none any more: it would open again what has been closed.
template <auto Task>
gboolean Perform(gpointer /*data*/)
{
    if (ClientEndpoint* endpoint = PublishedEndpoint()) {
        (endpoint->*Task)();
    }
    return G_SOURCE_REMOVE;
}

// Has the monitor thread do something when it next looks. A task that it never gets to goes with its context.
template <auto Task>
void Post()
{
    const std::lock_guard lock(g_lifecycle);
    if (g_monitor.context != nullptr) {
        Attach(g_monitor.context, Perform<Task>, nullptr);
    }
}

void Publish(const Monitor& monitor)
{
    const std::lock_guard lock(g_lifecycle);
    g_monitor = monitor;
}

gboolean QuitIfRequested(gpointer loop)
{
    if (g_endRequested) {
        g_main_loop_quit(static_cast<GMainLoop*>(loop));
    }
    return G_SOURCE_REMOVE;
}

// Gives the thread that ends then, 0 if there is none. In one step: one that started in between would not end.
pthread_t RequestEnd(CNSGdbus& client)
{
    const std::lock_guard lock(g_lifecycle);
    g_endRequested = g_endRequested || client.m_pMainLoop != nullptr || client.m_MonitorThread != 0;
    const LoopOwner loop(std::exchange(client.m_pMainLoop, nullptr));
    if (loop) {
        g_main_loop_quit(loop.get());
    }
    return client.m_MonitorThread;
}

// Whoever has waited for the end of the thread gives its pin back.
void ForgetMonitorThread(CNSGdbus& client)
{
    void* pin = nullptr;
    {
        const std::lock_guard lock(g_lifecycle);
        client.m_MonitorThread = 0;
        pin = std::exchange(g_pin, nullptr);
    }
    UnpinLibrary(pin);
}

GMainLoop* ExchangeLoop(CNSGdbus& client, GMainLoop* loop)
{
    const std::lock_guard lock(g_lifecycle);
    return std::exchange(client.m_pMainLoop, loop);
}

void RunLoop(CNSGdbus& client, GMainContext* context)
{
    const LoopOwner loop(g_main_loop_new(context, FALSE));
    ExchangeLoop(client, g_main_loop_ref(loop.get()));
    // A quit before the loop runs has no effect; the request is looked at again as soon as it does.
    Attach(context, QuitIfRequested, loop.get());
    g_main_loop_run(loop.get());
    // Set still if the request came before the loop was there to be seen.
    const LoopOwner unseen(ExchangeLoop(client, nullptr));
}

gboolean SetTrue(gpointer flag)
{
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_REMOVE;
}

// What GIO has left in the context refers to the connection and to the context itself, and would keep both for good.
// False if GIO has not done with a name in time: it never does if the host had the loss of its connection delivered at
// the very moment at which GIO asked for the name.
bool Drain(GMainContext* context)
{
    bool isLate = false;
    const SourceOwner limit(g_timeout_source_new_seconds(kDrainSeconds));
    g_source_set_callback(limit.get(), SetTrue, &isLate, nullptr);
    g_source_attach(limit.get(), context);
    const auto mustWait = [&] { return g_namesInUse > 0 && !isLate; };
    while (g_main_context_iteration(context, mustWait()) != FALSE || mustWait()) {
    }
    g_source_destroy(limit.get());
    return g_namesInUse == 0;
}

// What may still call the library must find it.
void KeepPin()
{
    const std::lock_guard lock(g_lifecycle);
    g_pin = nullptr;
}

bool StartMonitorOnce(CNSGdbus& client)
{
    if (s_bMonitorStarted || s_bMonitorStarted.exchange(true)) {
        return false;
    }
    void* pin = PinLibrary();
    const std::lock_guard lock(g_lifecycle);
    pthread_t thread = 0;
    if (pthread_create(&thread, nullptr, CNSGdbus::m_Monitor, &client) == 0) {
        client.m_MonitorThread = thread;
        g_pin = pin;
    } else {
        UnpinLibrary(pin);
    }
    return true;
}

} // namespace

void ServeEvents(CNSGdbus& client, GDBusConnection* connection)
{
    if (!StartMonitorOnce(client) && ServedOn().get() != connection) {
        Post<&ClientEndpoint::Follow>();
    }
}

void ReleaseClientName()
{
    Post<&ClientEndpoint::CloseIfLost>();
}

bool IsClientNameInUse()
{
    return g_namesInUse > 0;
}

bool IsMonitorThread()
{
    const std::lock_guard lock(g_lifecycle);
    return pthread_equal(g_monitor.thread, pthread_self()) != 0;
}

} // namespace kiv::link

using namespace kiv::link;

void* CNSGdbus::m_Monitor(void* pInstance)
{
    auto* client = static_cast<CNSGdbus*>(pInstance);
    if (client == nullptr) {
        KIV_LOG_ERROR("pInstance is NULL");
        return nullptr;
    }
    const ContextOwner context(g_main_context_new());
    if (!context) {
        KIV_LOG_ERROR("[%s] pContext is NULL", kApiTag);
        return nullptr;
    }
    g_main_context_push_thread_default(context.get());
    ClientEndpoint endpoint(*client, KIV_HERE);
    Publish({pthread_self(), context.get(), &endpoint});
    if (endpoint.Follow()) {
        RunLoop(*client, context.get());
    }
    Publish({});
    endpoint.Close();
    if (!Drain(context.get())) {
        KeepPin();
    }
    g_main_context_pop_thread_default(context.get());
    return nullptr;
}

void CNSGdbus::m_OnbusAcquired(GDBusConnection* pConnection, const gchar* /*pszName*/, gpointer pInstance)
{
    KIV_LOG_DEBUG("[%s] Enter", kApiTag);
    auto& client = *static_cast<CNSGdbus*>(pInstance);
    const std::string id = ClientName(client);
    const std::string path = ObjectPath(id);
    // The id may have changed since the name was chosen.
    if (g_variant_is_object_path(path.c_str()) == FALSE) {
        LogUnfitId(KIV_HERE, id);
        return;
    }
    const GDBusInterfaceVTable vtable = InterfaceVTable(client);
    GError* failure = nullptr;
    client.m_nRegistrationId = g_dbus_connection_register_object(
        pConnection, path.c_str(), client.m_pDbusNodeInfo->interfaces[0], &vtable, nullptr, nullptr, &failure);
    const ErrorOwner error(failure);
    if (error) {
        KIV_LOG_ERROR("[%s] Error: [%s]...", kApiTag, error->message);
        g_dbus_connection_unregister_object(pConnection, client.m_nRegistrationId);
        return;
    }
    KIV_LOG_INFO("strProxyObjPath [%s] pConnection %p", path.c_str(), static_cast<void*>(pConnection));
    if (client.m_nRegistrationId == 0) {
        KIV_LOG_ERROR("[%s] 0 == pInstance->m_nRegistrationId", kApiTag);
    }
}

void CNSGdbus::m_OnnameAcquired(GDBusConnection* /*pConnection*/, const gchar* /*pszName*/, gpointer /*pInstance*/) {}

void CNSGdbus::m_OnnameLost(GDBusConnection* /*pConnection*/, const gchar* /*pszName*/, gpointer /*pInstance*/) {}

int CNSGdbus::m_DestroyMessageMonitor()
{
    if (IsMonitorThread()) {
        RequestEnd(*this);
        return EDEADLK; // as pthread_join() would say
    }
    const std::lock_guard oneAtATime(g_joining);
    const pthread_t thread = RequestEnd(*this);
    if (thread == 0) {
        return 0;
    }
    const int result = pthread_join(thread, nullptr);
    if (result == 0) {
        ForgetMonitorThread(*this);
    }
    return result;
}
