#include "link/BusClient.h"

#include "link/ClientEndpoint.h"
#include "link/Lifetime.h"
#include "link/SystemBus.h"

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <utility>

namespace {

constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";
constexpr const char* kServerPath = "/org/lumra/tv/networkspeaker/server";
constexpr const char* kServerInterface = "org.lumra.tv.networkspeaker.server.interface";
constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kBusInterface = "org.freedesktop.DBus";
constexpr const char* kIdMethod = "check_dbus_connection";
constexpr const char* kOwnerMethod = "NameHasOwner";
constexpr int kCallTimeoutMs = 8000;
constexpr int kDefaultTimeoutMs = -1;

std::mutex g_members;
std::atomic<GVariant*> g_unreleased;

// What is the same in every call: made by the first one, guarded by g_members, given back at unload.
GDBusMessage* g_ownerQuery;
GVariant* g_ownPid;
pid_t g_pid; // that g_ownPid holds

} // namespace

namespace kiv::link {

namespace {

ConnectionOwner Exchange(CNSGdbus& client, ConnectionOwner connection)
{
    const std::lock_guard lock(g_members);
    return ConnectionOwner(std::exchange(client.m_pConnection, connection.release()));
}

void SetReady(CNSGdbus& client, bool ready)
{
    const std::lock_guard lock(g_members);
    client.m_bProxyReady = ready;
}

// A closed connection is replaced only when nobody refers to it.
void DropIfClosed(CNSGdbus& client)
{
    const ConnectionOwner held = HeldConnection(client);
    if (held && g_dbus_connection_is_closed(held.get()) != FALSE) {
        const std::lock_guard lock(g_members);
        // Another thread may have replaced it already.
        if (client.m_pConnection == held.get()) {
            g_object_unref(std::exchange(client.m_pConnection, nullptr));
        }
    }
}

bool IsUsable(const CNSGdbus& client)
{
    const std::lock_guard lock(g_members);
    return client.m_bProxyReady || client.m_pConnection != nullptr;
}

bool SameHandlers(const GDBusInterfaceVTable& a, const GDBusInterfaceVTable& b)
{
    return a.method_call == b.method_call && a.get_property == b.get_property && a.set_property == b.set_property;
}

// Written only when something changes, which in practice is once.
void StoreTemplate(CNSGdbus& client, const char* xml, const GDBusInterfaceVTable& vtable)
{
    const std::lock_guard lock(g_members);
    if (client.m_strIntrospectionXml != xml) {
        client.m_strIntrospectionXml = xml;
    }
    if (!SameHandlers(client.m_stInterfaceVTable, vtable)) {
        client.m_stInterfaceVTable = vtable;
    }
}

void SetClientName(CNSGdbus& client, const char* name)
{
    const std::lock_guard lock(g_members);
    if (client.m_strClientName != name) {
        client.m_strClientName = name;
    }
}

MessageOwner OwnerQueryForServer()
{
    const std::lock_guard lock(g_members);
    if (g_ownerQuery == nullptr) {
        g_ownerQuery = g_dbus_message_new_method_call(kBusName, kBusPath, kBusInterface, kOwnerMethod);
        if (g_ownerQuery != nullptr) {
            g_dbus_message_set_body(g_ownerQuery, g_variant_new("(s)", kServerName));
        }
    }
    return NewReference(g_ownerQuery);
}

// A copy, which shares the parts of the message, costs a fraction of making it anew.
MessageOwner NewOwnerQuery(const char* name)
{
    const MessageOwner kept = OwnerQueryForServer();
    MessageOwner query(kept ? g_dbus_message_copy(kept.get(), nullptr) : nullptr);
    if (query && std::strcmp(name, kServerName) != 0) {
        g_dbus_message_set_body(query.get(), g_variant_new("(s)", name));
    }
    return query;
}

// Another one after a fork.
VariantOwner OwnPid()
{
    const std::lock_guard lock(g_members);
    const pid_t pid = getpid();
    if (g_ownPid == nullptr || g_pid != pid) {
        const VariantOwner previous(std::exchange(g_ownPid, Sink(g_variant_new("(i)", pid)).release()));
        g_pid = pid;
    }
    return VariantOwner(g_ownPid != nullptr ? g_variant_ref(g_ownPid) : nullptr);
}

bool ReadOwnerAnswer(const Here& here, GVariant* body)
{
    return body != nullptr && IsOfType(here, kOwnerMethod, body, "(b)") &&
           g_variant_get_boolean(Member(body).get()) != FALSE;
}

bool HasOwner(const Here& here, GDBusConnection* connection, const char* name)
{
    bool exists = false;
    const MessageOwner request = NewOwnerQuery(name);
    if (!request) {
        KIV_LOG_AT(here, kLogError, "Failed to alloc new method call");
    } else if (connection != nullptr) {
        GError* failure = nullptr;
        const MessageOwner reply(g_dbus_connection_send_message_with_reply_sync(
            connection, request.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, kDefaultTimeoutMs, nullptr, nullptr, &failure));
        const ErrorOwner error(failure);
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

void FreeStrings(CNSGdbus& client)
{
    const std::lock_guard lock(g_members);
    for (std::string* text : {&client.m_strClientName, &client.m_strIntrospectionXml, &client.m_strProxyName}) {
        std::string().swap(*text);
    }
}

NeverDestroyed<CNSGdbus> g_client("ns", nullptr, nullptr);

void ForgetConstants()
{
    const std::lock_guard lock(g_members);
    g_clear_object(&g_ownerQuery);
    g_clear_pointer(&g_ownPid, g_variant_unref);
}

void GiveBackAtUnload()
{
    g_client->GiveProxy();
    FreeStrings(*g_client);
    ForgetConstants();
    KeepUnreleased(nullptr);
}

const AtUnload<GiveBackAtUnload> g_clientAtUnload;

} // namespace

CNSGdbus& ns_proxy = *g_client;

ConnectionOwner HeldConnection(const CNSGdbus& client)
{
    const std::lock_guard lock(g_members);
    return NewReference(client.m_pConnection);
}

std::string ClientName(const CNSGdbus& client)
{
    const std::lock_guard lock(g_members);
    return client.m_strClientName;
}

std::string IntrospectionXml(const CNSGdbus& client)
{
    const std::lock_guard lock(g_members);
    return client.m_strIntrospectionXml;
}

GDBusInterfaceVTable InterfaceVTable(const CNSGdbus& client)
{
    const std::lock_guard lock(g_members);
    return client.m_stInterfaceVTable;
}

void AdoptClientName(const Here& here, const char* received)
{
    const std::string current = ClientName(ns_proxy);
    if (received == nullptr || current == received) {
        return;
    }
    KIV_LOG_AT(here, kLogWarning, "ns_proxy.strProxyObj[%s], pProxyObj[%s]", current.c_str(), received);
    SetClientName(ns_proxy, received);
}

bool IsOfType(const Here& here, const char* method, GVariant* value, const char* expected)
{
    const char* const found = g_variant_get_type_string(value);
    if (std::strcmp(found, expected) == 0) {
        return true;
    }
    KIV_LOG_AT(here, kLogError, "[%s] method [%s], type [%s] expected, [%s] found", kApiTag, method, expected, found);
    return false;
}

void KeepUnreleased(VariantOwner value)
{
    const VariantOwner previous(g_unreleased.exchange(value.release()));
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
    m_pInstance = this;
}

CNSGdbus::~CNSGdbus()
{
    GiveProxy();
}

bool CNSGdbus::GetProxy(const char* pszXml, GDBusInterfaceVTable vtable, bool bReuse, bool bNoOwnerCheck)
{
    if (bReuse && IsUsable(*this)) {
        return true;
    }
    if (pszXml == nullptr) {
        KIV_LOG_ERROR("(%s) return", "pszXml == NULL");
        return false;
    }
    StoreTemplate(*this, pszXml, vtable);

    DropIfClosed(*this);
    GError* failure = nullptr;
    ConnectionOwner connection = GetSystemBus(HeldConnection(*this), &failure);
    if (failure != nullptr) {
        KIV_LOG_ERROR("[%s] NULL != pError", kApiTag);
        g_error_free(failure);
        GiveProxy();
        return false;
    }
    if (!connection) {
        KIV_LOG_ERROR("[%s] m_pConnection is NULL", kApiTag);
        GiveProxy();
        return false;
    }
    const ConnectionOwner inUse = NewReference(connection.get());
    Exchange(*this, std::move(connection));
    SetReady(*this, true);
    if (!m_GetProxyObj(bNoOwnerCheck)) {
        KIV_LOG_ERROR("!!! ERROR [%s] m_GetProxyObj fail", kApiTag);
        GiveProxy();
        return false;
    }
    ServeEvents(*this, inUse.get());
    return true;
}

void CNSGdbus::GiveProxy()
{
    Exchange(*this, nullptr);
    SetReady(*this, false);
}

bool CNSGdbus::MethodCall(std::string strMethod, GVariant* pInput, GVariant** ppOutput, bool bNoOwnerCheck)
{
    const VariantOwner input = Sink(pInput);
    const ConnectionOwner connection = HeldConnection(*this);
    if (!connection) {
        KIV_LOG_ERROR("[%s] m_pConnection is NULL", kApiTag);
        return false;
    }
    if (g_dbus_is_member_name(strMethod.c_str()) == FALSE) {
        KIV_LOG_ERROR("[%s] Error: method [%s],[%s]...", kApiTag, strMethod.c_str(), "not a valid method name");
        return false;
    }
    if (!bNoOwnerCheck && !HasOwner({"m_IsExistedBusname", __LINE__}, connection.get(), kServerName)) {
        return false;
    }
    KIV_LOG_DEBUG("[%s] Enter", kApiTag);
    GError* failure = nullptr;
    *ppOutput = g_dbus_connection_call_sync(
        connection.get(), kServerName, kServerPath, kServerInterface, strMethod.c_str(), input.get(), nullptr,
        G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, &failure);
    const ErrorOwner error(failure);
    if (error) {
        KIV_LOG_ERROR("[%s] Error: method [%s],[%s]...", kApiTag, strMethod.c_str(), error->message);
        return false;
    }
    return true;
}

bool CNSGdbus::m_GetProxyObj(bool bNoOwnerCheck)
{
    const VariantOwner input = OwnPid();
    if (!input) {
        KIV_LOG_ERROR("(%s) return", "param_in == NULL");
        return false;
    }
    GVariant* output = nullptr;
    if (!MethodCall(kIdMethod, input.get(), &output, bNoOwnerCheck)) {
        return false;
    }
    VariantOwner reply(output);
    const char* id = nullptr;
    if (reply && IsOfType(KIV_HERE, kIdMethod, reply.get(), "(s)")) {
        id = g_variant_get_string(Member(reply.get()).get(), nullptr);
    }
    SetClientName(*this, id != nullptr ? id : "");
    KeepUnreleased(std::move(reply));
    return id != nullptr;
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
