#include "Control.h"

#include "Names.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <stdexcept>

namespace kiv::bench {

namespace {

constexpr int kNoTimeout = G_MAXINT;
constexpr std::int32_t kEventId = 0x02020001;
constexpr std::int32_t kEventData = 64;

std::atomic<long> g_missing;

GVariant* Payload()
{
    std::array<std::int32_t, 2 + kEventData / sizeof(std::int32_t)> payload = {kEventId, kEventData};
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, payload.data(), sizeof payload, 1);
}

} // namespace

Control::Control() : bus_(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr))
{
    if (bus_ == nullptr) {
        throw std::runtime_error("no bus");
    }
}

Control::~Control()
{
    g_object_unref(bus_);
}

GVariant* Control::Call(const char* name, const char* interface, const char* method, GVariant* arguments) const
{
    g_autoptr(GError) error = nullptr;
    GVariant* answer = g_dbus_connection_call_sync(
        bus_, name, name == std::string(kBusName) ? kBusPath : kServerPath, interface, method, arguments, nullptr,
        G_DBUS_CALL_FLAGS_NONE, kNoTimeout, nullptr, &error);
    if (answer == nullptr) {
        throw std::runtime_error(std::string(method) + ": " + error->message);
    }
    return answer;
}

void Control::SetListBytes(std::size_t count) const
{
    g_variant_unref(
        Call(kServerName, kControlInterface, "SetListBytes", g_variant_new("(t)", static_cast<guint64>(count))));
}

void Control::Push(const std::string& id, unsigned count, unsigned outstanding) const
{
    g_variant_unref(Call(
        kServerName, kControlInterface, "Push", g_variant_new("(s@ayuu)", id.c_str(), Payload(), count, outstanding)));
}

void Control::WaitForClient(const std::string& id) const
{
    bool owned = false;
    GMainContext* context = g_main_context_new();
    g_main_context_push_thread_default(context);
    const guint watch = g_bus_watch_name_on_connection(
        bus_, (kClientName + id).c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, gpointer flag) { *static_cast<bool*>(flag) = true; }, nullptr,
        &owned, nullptr);
    while (!owned) {
        g_main_context_iteration(context, TRUE);
    }
    g_bus_unwatch_name(watch);
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
}

pid_t Control::ProcessOf(const char* name) const
{
    guint32 pid = 0;
    GVariant* answer = Call(kBusName, kBusName, "GetConnectionUnixProcessID", g_variant_new("(s)", name));
    g_variant_get(answer, "(u)", &pid);
    g_variant_unref(answer);
    return static_cast<pid_t>(pid);
}

void ExpectEvents(long count)
{
    g_missing = count;
}

void OnEvent(int /*id*/, void* /*data*/, int /*length*/)
{
    if (--g_missing == 0) {
        g_missing.notify_all();
    }
}

void WaitForEvents()
{
    for (long missing = g_missing; missing > 0; missing = g_missing) {
        g_missing.wait(missing);
    }
}

} // namespace kiv::bench
