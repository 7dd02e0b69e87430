#include "bench/Control.h"

#include "bench/Names.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <stdexcept>

namespace kiv::bench {

namespace {

constexpr std::int32_t kEventId = 0x02020001;
constexpr std::int32_t kEventData = 64;

std::atomic<long> g_missing;

link::VariantOwner Call(GDBusConnection* bus, const Destination& to, const char* method, GVariant* arguments)
{
    link::ErrorOwner error;
    link::VariantOwner answer(g_dbus_connection_call_sync(
        bus, to.name, to.path, to.interface, method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, G_MAXINT, nullptr,
        error.Out()));
    if (!answer) {
        throw std::runtime_error(std::string(method) + ": " + error->message);
    }
    return answer;
}

} // namespace

Control::Control() : bus_(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr))
{
    if (!bus_) {
        throw std::runtime_error("no bus");
    }
}

void Control::SetListBytes(std::size_t count) const
{
    Call(bus_.get(), kControl, "SetListBytes", g_variant_new("(t)", guint64{count}));
}

void Control::Push(const std::string& id, unsigned count, unsigned outstanding) const
{
    const std::array<std::int32_t, 2 + kEventData / sizeof(std::int32_t)> payload = {kEventId, kEventData};
    GVariant* bytes = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, payload.data(), sizeof payload, 1);
    Call(bus_.get(), kControl, "Push", g_variant_new("(s@ayuu)", id.c_str(), bytes, count, outstanding));
}

void Control::WaitForClient(const std::string& id) const
{
    bool owned = false;
    const guint watch = g_bus_watch_name_on_connection(
        bus_.get(), (kClientName + id).c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, gpointer flag) { *static_cast<bool*>(flag) = true; }, nullptr,
        &owned, nullptr);
    while (!owned) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_bus_unwatch_name(watch);
}

pid_t Control::ProcessOf(const char* name) const
{
    guint32 pid = 0;
    g_variant_get(Call(bus_.get(), kBus, "GetConnectionUnixProcessID", g_variant_new("(s)", name)).get(), "(u)", &pid);
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
