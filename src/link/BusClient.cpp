#include "link/BusClient.h"

#include "link/ClientMembers.h"
#include "link/LibraryPin.h"
#include "link/Lifetime.h"
#include "link/MonitorThread.h"
#include "link/Reply.h"
#include "link/SystemBus.h"
#include "link/WireCheck.h"

#include <unistd.h>

#include <atomic>
#include <cstring>

namespace kiv::link {

namespace {

constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";
constexpr const char* kServerPath = "/org/lumra/tv/networkspeaker/server";
constexpr const char* kServerInterface = "org.lumra.tv.networkspeaker.server.interface";
constexpr const char* kIdMethod = "check_dbus_connection";
constexpr const char* kOwnerMethod = "NameHasOwner";
constexpr int kCallTimeoutMs = 8000;

NeverDestroyed<CNSGdbus> g_client("ns", nullptr, nullptr);

// Returns the query whether the server's name has an owner. The first call makes it. Each call sends a copy, which
// costs a fraction of making a new one.
GDBusMessage* ServerQuery()
{
    static GDBusMessage* const query = [] {
        GDBusMessage* const made = g_dbus_message_new_method_call(kBusName, kBusPath, kBusInterface, kOwnerMethod);
        g_dbus_message_set_body(made, g_variant_new("(s)", kServerName));
        return made;
    }();
    return query;
}

MessageOwner NewOwnerQuery(const char* name)
{
    MessageOwner query(g_dbus_message_copy(ServerQuery(), nullptr));
    if (query && std::strcmp(name, kServerName) != 0) {
        g_dbus_message_set_body(query.get(), g_variant_new("(s)", name));
    }
    return query;
}

// An answer of another type is no yes, so the server counts as absent.
bool ReadOwnerAnswer(const Here& here, GVariant* body)
{
    return body != nullptr && CheckType(here, kOwnerMethod, body, "(b)") &&
           g_variant_get_boolean(Member(body).get()) != FALSE;
}

bool HasOwner(const Here& here, GDBusConnection* connection, const char* name)
{
    bool exists = false;
    const MessageOwner request = NewOwnerQuery(name);
    if (!request) {
        KIV_LOG_AT(here, kLogError, "Failed to alloc new method call");
    } else if (connection != nullptr) {
        ErrorOwner error;
        const MessageOwner reply(g_dbus_connection_send_message_with_reply_sync(
            connection, request.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, kDefaultTimeoutMs, nullptr, nullptr,
            error.Out()));
        if (reply) {
            exists = ReadOwnerAnswer(here, g_dbus_message_get_body(reply.get()));
        } else if (error) {
            KIV_LOG_AT(here, kLogError, "Failed to get uid [%s]", error->message);
        }
    }
    if (!exists) {
        KIV_LOG_AT(here, kLogError, "!!! ERROR %s not exist ", name);
    }
    return exists;
}

// Asks the server for this process's id, and notes it in the client. Returns the text of the reply, or null if there is
// none.
VariantOwner AskForId(CNSGdbus& client, GDBusConnection* connection, bool noOwnerCheck)
{
    const Here here{"m_GetProxyObj", __LINE__};
    const VariantOwner input = Sink(g_variant_new("(i)", getpid()));
    if (!input) {
        KIV_LOG_AT(here, kLogError, "(%s) return", "param_in == NULL");
        return nullptr;
    }
    GVariant* output = nullptr;
    if (!CallServer(connection, kIdMethod, input.get(), &output, noOwnerCheck)) {
        return nullptr;
    }
    const VariantOwner reply(output);
    // An answer of another type gives no id. An older id must not stay, because events would go to its owner.
    VariantOwner id;
    if (reply && CheckType(here, kIdMethod, reply.get(), "(s)")) {
        id = Member(reply.get());
    }
    SetClientId(client, id ? g_variant_get_string(id.get(), nullptr) : "");
    return id;
}

} // namespace

CNSGdbus& ns_proxy = *g_client;

ConnectionOwner
GetProxy(CNSGdbus& client, const char* xml, const GDBusInterfaceVTable& vtable, bool reuse, bool noOwnerCheck)
{
    const Here here{"GetProxy", __LINE__};
    if (reuse) {
        if (ConnectionOwner held = HeldConnection(client)) {
            return held;
        }
    }
    if (xml == nullptr) {
        KIV_LOG_AT(here, kLogError, "(%s) return", "pszXml == NULL");
        return nullptr;
    }
    WatchForExit();
    SetTemplate(client, xml, vtable);

    DropConnectionIfClosed(client); // otherwise GIO would return the same one
    ErrorOwner error;
    ConnectionOwner connection = GetSystemBus(error.Out());
    if (error) {
        KIV_LOG_AT(here, kLogError, "[%s] NULL != pError", kApiTag);
        DropConnection(client);
        return nullptr;
    }
    if (!connection) {
        KIV_LOG_AT(here, kLogError, "[%s] m_pConnection is NULL", kApiTag);
        DropConnection(client);
        return nullptr;
    }
    HoldConnection(client, connection.get());
    const VariantOwner id = AskForId(client, connection.get(), noOwnerCheck);
    if (!id) {
        KIV_LOG_AT(here, kLogError, "!!! ERROR [%s] m_GetProxyObj fail", kApiTag);
        DropConnection(client);
        return nullptr;
    }
    ServeEvents(client, connection.get(), g_variant_get_string(id.get(), nullptr));
    return connection;
}

bool CallServer(GDBusConnection* connection, const char* method, GVariant* input, GVariant** output, bool noOwnerCheck)
{
    const Here here{"MethodCall", __LINE__};
    if (connection == nullptr) {
        KIV_LOG_AT(here, kLogError, "[%s] m_pConnection is NULL", kApiTag);
        return false;
    }
    if (!noOwnerCheck && !HasOwner({"m_IsExistedBusname", __LINE__}, connection, kServerName)) {
        return false;
    }
    KIV_LOG_AT(here, kLogDebug, "[%s] Enter", kApiTag);
    *output = nullptr;
    if (const char* const reason = WhyUnsendable(method, input)) {
        KIV_LOG_AT(here, kLogError, "[%s] Error: method [%s],[%s]...", kApiTag, method, reason);
        return false;
    }
    ErrorOwner error;
    *output = g_dbus_connection_call_sync(
        connection, kServerName, kServerPath, kServerInterface, method, input, nullptr, G_DBUS_CALL_FLAGS_NONE,
        kCallTimeoutMs, nullptr, error.Out());
    if (error) {
        KIV_LOG_AT(here, kLogError, "[%s] Error: method [%s],[%s]...", kApiTag, method, error->message);
        return false;
    }
    return true;
}

void AdoptClientId(const Here& here, const char* received)
{
    if (received == nullptr || HasClientId(ns_proxy, received)) {
        return;
    }
    KIV_LOG_AT(here, kLogWarning, "ns_proxy.strProxyObj[%s], pProxyObj[%s]", ClientId(ns_proxy).get(), received);
    SetClientId(ns_proxy, received);
}

void EndClient()
{
    g_client.Destroy();
    g_object_unref(ServerQuery()); // ServerQuery() makes it if no call has
}

} // namespace kiv::link

using namespace kiv::link;

CNSGdbus* CNSGdbus::m_pInstance;

// The signatures are those that hosts link against.
// NOLINTBEGIN(modernize-pass-by-value,performance-unnecessary-value-param,readability-make-member-function-const)
CNSGdbus::CNSGdbus(const std::string& strProxyName, EventCallback pfnEventCallback, void* pUserData)
    : m_MonitorThread(0), m_pDbusNodeInfo(nullptr), m_pMainLoop(nullptr), m_pConnection(nullptr), m_stInterfaceVTable(),
      m_nRegistrationId(0), m_strProxyName(strProxyName), m_bProxyReady(false), m_pfnEventCallback(pfnEventCallback),
      m_pUserData(pUserData)
{
    std::atomic_ref<CNSGdbus*>{m_pInstance}.store(this);
}

CNSGdbus::~CNSGdbus()
{
    // When an object of the host's ends, m_pInstance points at the library's own again.
    CNSGdbus* instance = this;
    std::atomic_ref<CNSGdbus*>{m_pInstance}.compare_exchange_strong(instance, &ns_proxy);
    GiveProxy();
}

bool CNSGdbus::GetProxy(const char* pszXml, GDBusInterfaceVTable vtable, bool bReuse, bool bNoOwnerCheck)
{
    return kiv::link::GetProxy(*this, pszXml, vtable, bReuse, bNoOwnerCheck) != nullptr;
}

void CNSGdbus::GiveProxy()
{
    DropConnection(*this);
}

bool CNSGdbus::MethodCall(std::string strMethod, GVariant* pInput, GVariant** ppOutput, bool bNoOwnerCheck)
{
    const VariantOwner input = Sink(pInput);
    GVariant* unwanted = nullptr;
    const bool succeeded = CallServer(
        HeldConnection(*this).get(), strMethod.c_str(), input.get(), ppOutput != nullptr ? ppOutput : &unwanted,
        bNoOwnerCheck);
    const VariantOwner released(unwanted);
    return succeeded;
}

bool CNSGdbus::m_GetProxyObj(bool bNoOwnerCheck)
{
    return AskForId(*this, HeldConnection(*this).get(), bNoOwnerCheck) != nullptr;
}

bool CNSGdbus::m_IsExistedBusname(const char* pszName)
{
    if (pszName == nullptr || g_utf8_validate(pszName, -1, nullptr) == FALSE) {
        KIV_LOG_ERROR("(%s) return", "pszName is not valid UTF-8");
        return false;
    }
    return HasOwner(KIV_HERE, HeldConnection(*this).get(), pszName);
}
// NOLINTEND(modernize-pass-by-value,performance-unnecessary-value-param,readability-make-member-function-const)
