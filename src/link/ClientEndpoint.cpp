#include "link/ClientEndpoint.h"

#include "link/ClientMembers.h"
#include "link/EventDispatch.h"

#include <cstring>
#include <string_view>
#include <utility>

namespace kiv::link {

const GDBusInterfaceVTable kClientVTable = {NamClientReceiveHandleEvent, nullptr, nullptr, {}};

namespace {

constexpr std::string_view kClientNamePrefix = "org.lumra.tv.networkspeaker.client.";
constexpr const char* kClientPathPrefix = "/org/lumra/tv/networkspeaker/client/";
constexpr const char* kIdPlaceholder = "%s";

TextOwner BusName(const char* id)
{
    return TextOwner(g_strconcat(kClientNamePrefix.data(), id, nullptr));
}

TextOwner ObjectPath(const char* id)
{
    return TextOwner(g_strconcat(kClientPathPrefix, id, nullptr));
}

// Returns the id with which a client's bus name ends.
const char* IdIn(const char* busName)
{
    return std::string_view(busName).starts_with(kClientNamePrefix) ? busName + kClientNamePrefix.size() : busName;
}

// Replaces the first placeholder with the id. Does not use printf(), because the template of a host may have other
// conversions.
TextOwner FillIn(const char* xml, const char* id)
{
    const char* const at = std::strstr(xml, kIdPlaceholder);
    if (at == nullptr) {
        return CopyOf(xml);
    }
    const TextOwner before(g_strndup(xml, static_cast<gsize>(at - xml)));
    return TextOwner(g_strconcat(before.get(), id, at + std::strlen(kIdPlaceholder), nullptr));
}

bool HasInterface(const GDBusNodeInfo& node)
{
    return node.interfaces != nullptr && node.interfaces[0] != nullptr;
}

} // namespace

bool ClientEndpoint::Serve(ConnectionOwner connection, const char* id)
{
    if (isOpen_ && connection == connection_) {
        return true;
    }
    Close();
    connection_ = std::move(connection);
    const TextOwner name = BusName(id);
    // An id that is not valid in a name is refused here, before ParseXml() puts it into the XML.
    if (g_dbus_is_name(name.get()) == FALSE || g_variant_is_object_path(ObjectPath(id).get()) == FALSE) {
        LogUnfitId(id);
        return true;
    }
    if (!ParseXml(id)) {
        return false;
    }
    if (g_dbus_is_interface_name(client_.m_pDbusNodeInfo->interfaces[0]->name) == FALSE) {
        LogUnfitId(id);
        return true;
    }
    isOpen_ = true;
    CNSGdbus::m_OnbusAcquired(connection_.get(), name.get(), &client_);
    name_.Request(connection_.get(), name.get());
    return true;
}

bool ClientEndpoint::ParseXml(const char* id)
{
    ErrorOwner error;
    client_.m_pDbusNodeInfo =
        g_dbus_node_info_new_for_xml(FillIn(IntrospectionXml(client_).get(), id).get(), error.Out());
    if (error) {
        KIV_LOG_AT(here_, kLogError, "pError is not NULL");
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
    return true;
}

void ClientEndpoint::LogUnfitId(const char* id) const
{
    KIV_LOG_AT(here_, kLogError, "[%s] client id [%s] fits no D-Bus name, path or interface", kApiTag, id);
}

void ClientEndpoint::Close()
{
    isOpen_ = false;
    name_.Release();
    g_clear_pointer(&client_.m_pDbusNodeInfo, g_dbus_node_info_unref);
    if (const guint registration = std::exchange(client_.m_nRegistrationId, 0); registration != 0) {
        g_dbus_connection_unregister_object(connection_.get(), registration);
    }
    connection_.reset();
}

} // namespace kiv::link

using namespace kiv::link;

void CNSGdbus::m_OnbusAcquired(GDBusConnection* pConnection, const gchar* pszName, gpointer pInstance)
{
    KIV_LOG_DEBUG("[%s] Enter", kApiTag);
    auto& client = *static_cast<CNSGdbus*>(pInstance);
    // The id comes from the name, because m_strClientName may have changed since.
    const TextOwner path = ObjectPath(IdIn(pszName));
    const GDBusInterfaceVTable vtable = InterfaceVTable(client);
    ErrorOwner error;
    client.m_nRegistrationId = g_dbus_connection_register_object(
        pConnection, path.get(), client.m_pDbusNodeInfo->interfaces[0], &vtable, nullptr, nullptr, error.Out());
    if (error) {
        KIV_LOG_ERROR("[%s] Error: [%s]...", kApiTag, error->message);
        return;
    }
    KIV_LOG_INFO("strProxyObjPath [%s] pConnection %p", path.get(), static_cast<void*>(pConnection));
    if (client.m_nRegistrationId == 0) {
        KIV_LOG_ERROR("[%s] 0 == pInstance->m_nRegistrationId", kApiTag);
    }
}

void CNSGdbus::m_OnnameAcquired(GDBusConnection* /*pConnection*/, const gchar* /*pszName*/, gpointer /*pInstance*/) {}

void CNSGdbus::m_OnnameLost(GDBusConnection* /*pConnection*/, const gchar* /*pszName*/, gpointer /*pInstance*/) {}
