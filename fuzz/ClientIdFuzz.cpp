// The client's id on its way into bus name, object path and XML. Input: the id that the server gives at first; a NUL;
// and the one that it has changed to when the bus name is asked for, if it has.

#include "Bus.h"
#include "Input.h"
#include "KivServiceInterface.h"
#include "Platform.h"
#include "Target.h"
#include "link/BusClient.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

using namespace kiv::fuzz;
using kiv::link::Sink;

namespace {

constexpr std::string_view kNamePrefix = "org.lumra.tv.networkspeaker.client.";
constexpr std::string_view kPathPrefix = "/org/lumra/tv/networkspeaker/client/";
constexpr std::string_view kInterfacePrefix = "org.lumra.tv.networkspeaker.client.interface.";
constexpr std::size_t kMaxNameLength = 255;
constexpr guint kNameOwner = 7;
constexpr guint kRegistration = 9;

// What the endpoint has on the bus, and what it had.
struct Endpoint {
    std::string changedId;
    GDestroyNotify onNameDone = nullptr;
    std::string name;
    std::string path;
    std::string interface;
    bool ownsName = false;
    bool isRegistered = false;
};

Endpoint g_endpoint;

CNSGdbus& Client()
{
    return *CNSGdbus::m_pInstance;
}

bool IsLetter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// What is fit for a name, a path and an interface alike.
bool IsFit(const std::string& id)
{
    return !id.empty() && IsLetter(id.front()) &&
           std::ranges::all_of(id, [](char c) { return IsLetter(c) || IsDigit(c); }) &&
           kInterfacePrefix.size() + id.size() <= kMaxNameLength;
}

std::string Join(std::string_view prefix, const std::string& id)
{
    return std::string(prefix) + id;
}

// An id that gets into the XML can add nothing to it.
bool IsAsInTheTemplate(const GDBusInterfaceInfo& interface)
{
    const char* const methods[] = {
        "nam_notify_subscriber", "test_nam_notify_subscriber_1", "000_nam_notify_subscriber"};
    for (std::size_t i = 0; i < std::size(methods); ++i) {
        if (interface.methods[i] == nullptr || std::strcmp(interface.methods[i]->name, methods[i]) != 0) {
            return false;
        }
    }
    return interface.methods[std::size(methods)] == nullptr && interface.signals[0] == nullptr &&
           interface.properties[0] == nullptr;
}

} // namespace

// Seen by the libraries that call them too.
#pragma GCC visibility push(default)

extern "C" {

// Put in place of the functions by the linker.
// NOLINTBEGIN(bugprone-reserved-identifier)

guint __wrap_g_bus_own_name(
    GBusType /*type*/, const gchar* name, GBusNameOwnerFlags /*flags*/, GBusAcquiredCallback onBusAcquired,
    GBusNameAcquiredCallback /*onNameAcquired*/, GBusNameLostCallback /*onNameLost*/, gpointer data,
    GDestroyNotify onNameDone)
{
    KIV_REQUIRE(g_dbus_is_name(name) && !g_endpoint.ownsName);
    g_endpoint.ownsName = true;
    g_endpoint.name = name;
    g_endpoint.onNameDone = onNameDone;
    kiv::link::AdoptClientName(KIV_HERE, g_endpoint.changedId.c_str());
    onBusAcquired(kiv::link::HeldConnection(Client()).get(), name, data);
    return kNameOwner;
}

void __wrap_g_bus_unown_name(guint owner)
{
    KIV_REQUIRE(owner == kNameOwner && g_endpoint.ownsName);
    g_endpoint.ownsName = false;
    g_endpoint.onNameDone(&Client());
}

guint __wrap_g_dbus_connection_register_object(
    GDBusConnection* /*connection*/, const gchar* path, GDBusInterfaceInfo* interface,
    const GDBusInterfaceVTable* /*vtable*/, gpointer /*data*/, GDestroyNotify /*free*/, GError** /*error*/)
{
    KIV_REQUIRE(g_variant_is_object_path(path) && g_dbus_is_interface_name(interface->name));
    KIV_REQUIRE(IsAsInTheTemplate(*interface) && !g_endpoint.isRegistered);
    g_endpoint.isRegistered = true;
    g_endpoint.path = path;
    g_endpoint.interface = interface->name;
    return kRegistration;
}

gboolean __wrap_g_dbus_connection_unregister_object(GDBusConnection* /*connection*/, guint registration)
{
    KIV_REQUIRE(registration == kRegistration && g_endpoint.isRegistered);
    g_endpoint.isRegistered = false;
    return TRUE;
}

// A turn of the loop is enough to see it all.
void __wrap_g_main_loop_run(GMainLoop* loop)
{
    g_main_context_iteration(g_main_loop_get_context(loop), FALSE);
}

// NOLINTEND(bugprone-reserved-identifier)
}

#pragma GCC visibility pop

int LLVMFuzzerInitialize(int* /*argc*/, char*** argv)
{
    Prepare(*argv);
    Connect();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::string givenId = input.Utf8();
    const std::string changedId = input.Utf8();
    g_endpoint = {};
    g_endpoint.changedId = changedId.empty() ? givenId : changedId;
    const unsigned references = ConnectionReferences();

    const Answer id{Sink(g_variant_new("(s)", givenId.c_str())), {}};
    const Answering answering(Question::kClientId, id);
    KIV_REQUIRE(Client().m_GetProxyObj(true) && Client().m_strClientName == givenId);
    TakeErrorCount();

    CNSGdbus::m_Monitor(&Client());

    const bool isFit = IsFit(givenId);
    const std::string path = Join(kPathPrefix, g_endpoint.changedId);
    const bool isServed = isFit && g_variant_is_object_path(path.c_str()) != FALSE;
    KIV_REQUIRE(g_endpoint.name == (isFit ? Join(kNamePrefix, givenId) : ""));
    KIV_REQUIRE(g_endpoint.path == (isServed ? path : ""));
    KIV_REQUIRE(g_endpoint.interface == (isServed ? Join(kInterfacePrefix, givenId) : ""));
    KIV_REQUIRE(TakeErrorCount() == (isServed ? 0 : 1));
    KIV_REQUIRE(!g_endpoint.ownsName && !g_endpoint.isRegistered);
    KIV_REQUIRE(Client().m_pDbusNodeInfo == nullptr && Client().m_pMainLoop == nullptr);
    kiv::link::KeepUnreleased(nullptr);
    KIV_REQUIRE(ConnectionReferences() == references);
    return 0;
}
