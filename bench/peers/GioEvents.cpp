#include "bench/Names.h"
#include "bench/peers/EventPeer.h"
#include "src/link/Owners.h"

#include <stdexcept>
#include <stop_token>
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
        // GIO delivers the calls to the context that is the thread's own while the object is registered.
        g_main_context_push_thread_default(context_.get());
        const GDBusInterfaceVTable vtable = {OnCall, nullptr, nullptr, {}};
        const link::NodeInfoOwner node(g_dbus_node_info_new_for_xml(kXml, nullptr));
        object_ = g_dbus_connection_register_object(
            bus_.get(), (std::string(kClientPath) + kId).c_str(), node->interfaces[0], &vtable, this, nullptr, nullptr);
        const link::VariantOwner answer(g_dbus_connection_call_sync(
            bus_.get(), kBus.name, kBus.path, kBus.interface, "RequestName",
            g_variant_new("(su)", (std::string(kClientName) + kId).c_str(), 0), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
            nullptr, nullptr));
        g_main_context_pop_thread_default(context_.get());
        if (object_ == 0 || !answer) {
            throw std::runtime_error("GIO: no object for events");
        }
        thread_ = std::jthread([this](const std::stop_token& end) {
            while (!end.stop_requested()) {
                g_main_context_iteration(context_.get(), TRUE);
            }
        });
    }
    ~GioEvents() override
    {
        thread_.request_stop();
        g_main_context_wakeup(context_.get());
        thread_.join();
        g_dbus_connection_unregister_object(bus_.get(), object_);
    }
    GioEvents(const GioEvents&) = delete;
    GioEvents& operator=(const GioEvents&) = delete;

    std::string Id() const override { return kId; }

    void Subscribe(unsigned count, Subscriber subscriber) override { subscribers_.assign(count, subscriber); }

private:
    static void OnCall(
        GDBusConnection* /*bus*/, const gchar* /*sender*/, const gchar* /*path*/, const gchar* /*interface*/,
        const gchar* /*method*/, GVariant* parameters, GDBusMethodInvocation* invocation, gpointer self)
    {
        const link::VariantOwner array = link::Member(parameters);
        g_dbus_method_invocation_return_value(invocation, nullptr);
        gsize size = 0;
        const void* payload = g_variant_get_fixed_array(array.get(), &size, 1);
        TellSubscribers(static_cast<GioEvents*>(self)->subscribers_, payload, size);
    }

    std::vector<Subscriber> subscribers_; // changed only while no events arrive
    link::ConnectionOwner bus_{g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr)};
    link::ContextOwner context_{g_main_context_new()};
    guint object_ = 0;
    std::jthread thread_;
};

} // namespace

std::unique_ptr<EventPeer> MakeGioEvents()
{
    return std::make_unique<GioEvents>();
}

} // namespace kiv::bench
