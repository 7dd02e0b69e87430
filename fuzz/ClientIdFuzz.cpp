// Fuzzes the client id, which becomes a part of the bus name, the object path and the XML. Input: the id that the
// server gives first, a NUL, and the id that it gives after that. The bus answers the first request for a name when the
// second id comes, or too late.

#include "KivServiceInterface.h"
#include "fuzz/Bus.h"
#include "fuzz/Input.h"
#include "fuzz/Platform.h"
#include "fuzz/Target.h"
#include "src/link/ClientEndpoint.h"

#include <algorithm>
#include <functional>
#include <string>
#include <utility>

using namespace kiv::fuzz;
using kiv::link::Sink;

namespace {

const std::string kNamePrefix = "org.lumra.tv.networkspeaker.client.";
const std::string kPathPrefix = "/org/lumra/tv/networkspeaker/client/";
const std::string kInterfacePrefix = "org.lumra.tv.networkspeaker.client.interface.";
constexpr std::size_t kMaxNameLength = 255;
constexpr guint kSubscription = 7;
constexpr guint kRegistration = 9;

// The objects and names that the endpoint has on the bus.
struct Served {
    std::string name;
    std::string path;
    std::string interface;
    unsigned subscriptions = 0;
};

Served g_served;
std::function<void()> g_answerRequest;

void AnswerRequest()
{
    if (g_answerRequest) {
        std::exchange(g_answerRequest, nullptr)();
    }
}

// Returns whether an id is valid in a name, a path and an interface alike.
bool IsFit(const std::string& id)
{
    return !id.empty() && !g_ascii_isdigit(id.front()) &&
           std::ranges::all_of(id, [](char c) { return g_ascii_isalnum(c) || c == '_'; }) &&
           (kInterfacePrefix + id).size() <= kMaxNameLength;
}

// Returns whether the interface has exactly the methods of the template: an id must not add anything to the XML.
bool IsAsInTheTemplate(const GDBusInterfaceInfo& interface)
{
    std::string methods;
    for (GDBusMethodInfo** method = interface.methods; *method != nullptr; ++method) {
        methods += std::string((*method)->name) + '\n';
    }
    return methods == "nam_notify_subscriber\ntest_nam_notify_subscriber_1\n000_nam_notify_subscriber\n" &&
           interface.signals[0] == nullptr && interface.properties[0] == nullptr;
}

} // namespace

// These functions are visible, because libraries that call the originals call them, too.
#pragma GCC visibility push(default)

extern "C" {

// The linker puts these functions in place of GIO's (--wrap).

void __wrap_g_dbus_connection_call(
    GDBusConnection* connection, const gchar* /*busName*/, const gchar* /*path*/, const gchar* /*interface*/,
    const gchar* /*method*/, GVariant* arguments, const GVariantType* /*replyType*/, GDBusCallFlags /*flags*/,
    gint /*timeout*/, GCancellable* /*cancellable*/, GAsyncReadyCallback callback, gpointer data)
{
    const kiv::link::VariantOwner owned = Sink(arguments);
    const char* name = nullptr;
    g_variant_get(arguments, "(&su)", &name, nullptr);
    KIV_REQUIRE(g_dbus_is_name(name) && g_served.name.empty() && !g_answerRequest);
    g_served.name = name;
    g_answerRequest = [=] { callback(G_OBJECT(connection), nullptr, data); };
}

GVariant*
__wrap_g_dbus_connection_call_finish(GDBusConnection* /*connection*/, GAsyncResult* /*result*/, GError** /*error*/)
{
    return g_variant_ref_sink(g_variant_new("(u)", 1));
}

gboolean __wrap_g_dbus_connection_send_message(
    GDBusConnection* /*connection*/, GDBusMessage* message, GDBusSendMessageFlags /*flags*/, guint32* /*serial*/,
    GError** /*error*/)
{
    const char* name = nullptr;
    g_variant_get(g_dbus_message_get_body(message), "(&s)", &name);
    KIV_REQUIRE(g_served.name == name);
    g_served.name.clear();
    return TRUE;
}

guint __wrap_g_dbus_connection_signal_subscribe(
    GDBusConnection* /*connection*/, const gchar* /*sender*/, const gchar* /*interface*/, const gchar* /*member*/,
    const gchar* /*path*/, const gchar* name, GDBusSignalFlags /*flags*/, GDBusSignalCallback /*callback*/,
    gpointer /*data*/, GDestroyNotify /*free*/)
{
    KIV_REQUIRE(g_dbus_is_name(name));
    ++g_served.subscriptions;
    return kSubscription;
}

void __wrap_g_dbus_connection_signal_unsubscribe(GDBusConnection* /*connection*/, guint subscription)
{
    KIV_REQUIRE(subscription == kSubscription && g_served.subscriptions != 0);
    --g_served.subscriptions;
}

guint __wrap_g_dbus_connection_register_object(
    GDBusConnection* /*connection*/, const gchar* path, GDBusInterfaceInfo* interface,
    const GDBusInterfaceVTable* /*vtable*/, gpointer /*data*/, GDestroyNotify /*free*/, GError** /*error*/)
{
    KIV_REQUIRE(g_variant_is_object_path(path) && g_dbus_is_interface_name(interface->name));
    KIV_REQUIRE(IsAsInTheTemplate(*interface) && g_served.path.empty());
    g_served.path = path;
    g_served.interface = interface->name;
    return kRegistration;
}

gboolean __wrap_g_dbus_connection_unregister_object(GDBusConnection* /*connection*/, guint registration)
{
    KIV_REQUIRE(registration == kRegistration && !g_served.path.empty());
    g_served.path.clear();
    return TRUE;
}
}

#pragma GCC visibility pop

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::string first = input.Utf8();
    const std::string second = input.Utf8();
    const unsigned references = ConnectionReferences();
    TakeErrorCount();

    kiv::link::ClientEndpoint endpoint(Client(), KIV_HERE);
    const auto serve = [&](const std::string& id) {
        KIV_REQUIRE(endpoint.Serve(kiv::link::NewReference(Client().m_pConnection), id.c_str()));
    };
    const auto requireServed = [](const std::string& id) {
        KIV_REQUIRE(g_served.name == kNamePrefix + id);
        KIV_REQUIRE(g_served.path == kPathPrefix + id);
        KIV_REQUIRE(g_served.interface == kInterfacePrefix + id);
    };
    serve(first);
    KIV_REQUIRE(TakeErrorCount() == (IsFit(first) ? 0 : 1));
    const bool isAnsweredInTime = size % 2 == 0;
    if (isAnsweredInTime) {
        AnswerRequest();
    }
    serve(second);
    if (IsFit(first)) {
        requireServed(first); // and the second id does not move the endpoint
    } else if (IsFit(second)) {
        requireServed(second);
    } else {
        KIV_REQUIRE(g_served.name.empty() && g_served.path.empty());
    }
    KIV_REQUIRE(TakeErrorCount() == (IsFit(first) || IsFit(second) ? 0 : 1));

    endpoint.Close();
    AnswerRequest();
    KIV_REQUIRE(g_served.name.empty() && g_served.path.empty() && g_served.subscriptions == 0);
    KIV_REQUIRE(!kiv::link::ClientName::IsAnswerPending());
    KIV_REQUIRE(Client().m_pDbusNodeInfo == nullptr);
    KIV_REQUIRE(ConnectionReferences() == references);
    return 0;
}
