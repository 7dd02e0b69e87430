#include "Names.h"
#include "peers/EventPeer.h"

#include <gio/gio.h>

#include <future>
#include <stdexcept>
#include <thread>

namespace kiv::bench {

namespace {

constexpr const char* kId = "gio";

constexpr const char* kXml = R"(
<node>
  <interface name="org.lumra.tv.networkspeaker.client.interface.gio">
    <method name="nam_notify_subscriber"><arg name="param" type="ay" direction="in"/></method>
  </interface>
</node>)";

// Serves an object on a thread of its own, over the connection that the process shares.
class GioEvents : public EventPeer {
public:
    GioEvents()
    {
        std::promise<bool> serving;
        std::future<bool> served = serving.get_future();
        thread_ = std::thread([this, &serving] { Run(serving); });
        if (!served.get()) {
            thread_.join();
            throw std::runtime_error("GIO: no object for events");
        }
    }
    ~GioEvents() override
    {
        g_main_loop_quit(loop_);
        thread_.join();
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }
    GioEvents(const GioEvents&) = delete;
    GioEvents& operator=(const GioEvents&) = delete;

    std::string Id() const override { return kId; }

    void Subscribe(unsigned count, Subscriber subscriber) override { subscribers_.assign(count, subscriber); }

private:
    void Run(std::promise<bool>& serving)
    {
        g_main_context_push_thread_default(context_);
        GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        const guint object = bus != nullptr ? Serve(bus) : 0;
        serving.set_value(object != 0);
        if (object != 0) {
            g_main_loop_run(loop_);
            g_dbus_connection_unregister_object(bus, object);
        }
        g_clear_object(&bus);
        g_main_context_pop_thread_default(context_);
    }

    guint Serve(GDBusConnection* bus)
    {
        const GDBusInterfaceVTable vtable = {OnCall, nullptr, nullptr, {}};
        GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kXml, nullptr);
        const guint object = g_dbus_connection_register_object(
            bus, (std::string(kClientPath) + kId).c_str(), node->interfaces[0], &vtable, this, nullptr, nullptr);
        g_dbus_node_info_unref(node);
        GVariant* answer = g_dbus_connection_call_sync(
            bus, kBusName, kBusPath, kBusName, "RequestName",
            g_variant_new("(su)", (std::string(kClientName) + kId).c_str(), 0), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
            nullptr, nullptr);
        if (answer == nullptr) {
            return 0;
        }
        g_variant_unref(answer);
        return object;
    }

    static void OnCall(
        GDBusConnection* /*bus*/, const gchar* /*sender*/, const gchar* /*path*/, const gchar* /*interface*/,
        const gchar* /*method*/, GVariant* parameters, GDBusMethodInvocation* invocation, gpointer self)
    {
        GVariant* array = g_variant_get_child_value(parameters, 0);
        g_dbus_method_invocation_return_value(invocation, nullptr);
        gsize size = 0;
        const void* payload = g_variant_get_fixed_array(array, &size, 1);
        TellSubscribers(static_cast<GioEvents*>(self)->subscribers_, payload, size);
        g_variant_unref(array);
    }

    std::vector<Subscriber> subscribers_; // changed only while no events arrive
    GMainContext* context_ = g_main_context_new();
    GMainLoop* loop_ = g_main_loop_new(context_, FALSE);
    std::thread thread_;
};

} // namespace

std::unique_ptr<EventPeer> MakeGioEvents()
{
    return std::make_unique<GioEvents>();
}

} // namespace kiv::bench
