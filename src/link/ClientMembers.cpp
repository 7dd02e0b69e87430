#include "link/ClientMembers.h"

#include "link/SystemBus.h"

#include <mutex>
#include <new>
#include <string>
#include <utility>

namespace kiv::link {

namespace {

std::mutex g_membersMutex;

ConnectionOwner Exchange(CNSGdbus& client, ConnectionOwner connection)
{
    const std::lock_guard lock(g_membersMutex);
    client.m_bProxyReady = connection != nullptr;
    return ConnectionOwner(std::exchange(client.m_pConnection, connection.release()));
}

// Writes the text only if it changes, which in practice is once. If there is no memory for the new value, the text
// keeps the old one.
void Assign(std::string& text, const char* value)
{
    try {
        if (text != value) {
            text = value;
        }
    } catch (const std::bad_alloc&) {
    }
}

bool SameHandlers(const GDBusInterfaceVTable& a, const GDBusInterfaceVTable& b)
{
    return a.method_call == b.method_call && a.get_property == b.get_property && a.set_property == b.set_property;
}

} // namespace

ConnectionOwner HeldConnection(const CNSGdbus& client)
{
    const std::lock_guard lock(g_membersMutex);
    return NewReference(client.m_pConnection);
}

void HoldConnection(CNSGdbus& client, GDBusConnection* connection)
{
    Exchange(client, NewReference(connection));
}

void DropConnection(CNSGdbus& client)
{
    Exchange(client, nullptr);
}

void DropConnectionIfClosed(CNSGdbus& client)
{
    const ConnectionOwner held = HeldConnection(client);
    if (!IsClosed(held.get())) {
        return;
    }
    ConnectionOwner dropped;
    const std::lock_guard lock(g_membersMutex);
    // Another thread may have replaced the connection already.
    if (client.m_pConnection == held.get()) {
        dropped.reset(std::exchange(client.m_pConnection, nullptr));
        client.m_bProxyReady = false;
    }
}

TextOwner ClientId(const CNSGdbus& client)
{
    const std::lock_guard lock(g_membersMutex);
    return CopyOf(client.m_strClientName.c_str());
}

bool HasClientId(const CNSGdbus& client, const char* id)
{
    const std::lock_guard lock(g_membersMutex);
    return client.m_strClientName == id;
}

void SetClientId(CNSGdbus& client, const char* id)
{
    const std::lock_guard lock(g_membersMutex);
    Assign(client.m_strClientName, id);
}

TextOwner IntrospectionXml(const CNSGdbus& client)
{
    const std::lock_guard lock(g_membersMutex);
    return CopyOf(client.m_strIntrospectionXml.c_str());
}

GDBusInterfaceVTable InterfaceVTable(const CNSGdbus& client)
{
    const std::lock_guard lock(g_membersMutex);
    return client.m_stInterfaceVTable;
}

void SetTemplate(CNSGdbus& client, const char* xml, const GDBusInterfaceVTable& vtable)
{
    const std::lock_guard lock(g_membersMutex);
    Assign(client.m_strIntrospectionXml, xml);
    if (!SameHandlers(client.m_stInterfaceVTable, vtable)) {
        client.m_stInterfaceVTable = vtable;
    }
}

} // namespace kiv::link
