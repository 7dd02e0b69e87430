// The server of the benchmarks: a GIO object that answers every client at once with the same values, and pushes events.

#include "bench/Names.h"
#include "src/link/Owners.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kiv::bench {

namespace {

constexpr const char* kControlXml = R"(
<node>
  <interface name="org.lumra.tv.networkspeaker.bench">
    <method name="SetListBytes"><arg name="count" type="t" direction="in"/></method>
    <method name="Push">
      <arg name="id" type="s" direction="in"/>
      <arg name="payload" type="ay" direction="in"/>
      <arg name="count" type="u" direction="in"/>
      <arg name="outstanding" type="u" direction="in"/>
    </method>
  </interface>
</node>)";

link::VariantOwner g_list; // the answer to every list query

void SetListBytes(std::size_t count)
{
    const std::string bytes(count, 's');
    GVariant* array = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
    g_list = link::Sink(g_variant_new_tuple(&array, 1));
}

// Pushes events to a client, a limited number at a time. When all have been answered, answers the call that asked for
// them and deletes itself. An event that fails ends the server, and with it the measurement.
class Push {
public:
    Push(GDBusConnection* connection, GVariant* parameters, GDBusMethodInvocation* invocation)
        : connection_(connection), invocation_(invocation)
    {
        const char* id = nullptr;
        guint outstanding = 0;
        g_autoptr(GVariant) payload = nullptr;
        g_variant_get(parameters, "(&s@ayuu)", &id, &payload, &unsent_, &outstanding);
        arguments_ = link::Sink(g_variant_new_tuple(&payload, 1));
        name_ = std::string(kClientName) + id;
        path_ = std::string(kClientPath) + id;
        interface_ = std::string(kClientInterface) + id;
        unanswered_ = unsent_;
        for (guint i = 0; i < outstanding; ++i) {
            SendNext();
        }
    }

private:
    void SendNext()
    {
        if (unsent_ > 0) {
            --unsent_;
            g_dbus_connection_call(
                connection_, name_.c_str(), path_.c_str(), interface_.c_str(), kEventMethod, arguments_.get(), nullptr,
                G_DBUS_CALL_FLAGS_NO_AUTO_START, kCallTimeoutMs, nullptr, OnAnswer, this);
        }
    }

    static void OnAnswer(GObject* connection, GAsyncResult* result, gpointer self)
    {
        link::ErrorOwner error;
        const link::VariantOwner answer(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, error.Out()));
        if (!answer) {
            g_error("an event failed: %s", error->message);
        }
        auto* const push = static_cast<Push*>(self);
        push->SendNext();
        if (--push->unanswered_ == 0) {
            g_dbus_method_invocation_return_value(push->invocation_, nullptr);
            delete push;
        }
    }

    GDBusConnection* connection_;
    GDBusMethodInvocation* invocation_;
    link::VariantOwner arguments_;
    std::string name_;
    std::string path_;
    std::string interface_;
    guint unsent_ = 0;
    guint unanswered_ = 0;
};

GVariant* AnswerOfType(const char* type)
{
    switch (*type) {
    case 'a':
        return g_list.get();
    case 'b':
        return g_variant_new("(b)", TRUE);
    case 's':
        return g_variant_new("(s)", "tv_1");
    default:
        return g_variant_new("(i)", 7);
    }
}

void OnServerCall(
    GDBusConnection* /*connection*/, const gchar* /*sender*/, const gchar* /*path*/, const gchar* /*interface*/,
    const gchar* /*method*/, GVariant* /*parameters*/, GDBusMethodInvocation* invocation, gpointer /*data*/)
{
    const GDBusMethodInfo* method = g_dbus_method_invocation_get_method_info(invocation);
    const GDBusArgInfo* answer = method->out_args != nullptr ? method->out_args[0] : nullptr;
    g_dbus_method_invocation_return_value(invocation, answer != nullptr ? AnswerOfType(answer->signature) : nullptr);
}

void OnControlCall(
    GDBusConnection* connection, const gchar* /*sender*/, const gchar* /*path*/, const gchar* /*interface*/,
    const gchar* method, GVariant* parameters, GDBusMethodInvocation* invocation, gpointer /*data*/)
{
    if (std::string_view(method) == "Push") {
        new Push(connection, parameters, invocation);
        return;
    }
    guint64 count = 0;
    g_variant_get(parameters, "(t)", &count);
    SetListBytes(static_cast<std::size_t>(count));
    g_dbus_method_invocation_return_value(invocation, nullptr);
}

void Register(GDBusConnection* connection, const std::string& xml, GDBusInterfaceMethodCallFunc handler)
{
    const GDBusInterfaceVTable vtable = {handler, nullptr, nullptr, {}};
    const link::NodeInfoOwner node(g_dbus_node_info_new_for_xml(xml.c_str(), nullptr));
    if (node == nullptr || g_dbus_connection_register_object(
                               connection, kServerPath, node->interfaces[0], &vtable, nullptr, nullptr, nullptr) == 0) {
        throw std::runtime_error("the object cannot be registered");
    }
}

std::string Read(const char* file)
{
    std::ifstream stream(file);
    return {std::istreambuf_iterator(stream), {}};
}

void Serve()
{
    link::ErrorOwner error;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, error.Out());
    if (bus == nullptr) {
        throw std::runtime_error(error->message);
    }
    SetListBytes(0);
    Register(bus, Read(KIV_SERVER_XML), OnServerCall);
    Register(bus, kControlXml, OnControlCall);
    g_bus_own_name_on_connection(bus, kServerName, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, nullptr, nullptr, nullptr);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

} // namespace

} // namespace kiv::bench

int main()
{
    try {
        kiv::bench::Serve();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kiv-bench-server: %s\n", error.what());
        return 1;
    }
}
