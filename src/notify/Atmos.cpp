#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/EventReceivers.h"
#include "link/Lifetime.h"
#include "notify/Receivers.h"

#include <cstdint>
#include <new>

using namespace kiv::link;

namespace {

struct Registration {
    AtmosSupportCallback callback;
    void* userData;
};

constexpr int kSupported = 1;

// Ordered by registration, which is the order of the calls. Each callback is registered once.
using Registrations = kiv::notify::Receivers<std::uint64_t, Registration>;
NeverDestroyed<Registrations> g_registrations;

auto IsOf(AtmosSupportCallback callback)
{
    return [callback](std::uint64_t, const Registration& registration) { return registration.callback == callback; };
}

// Returns false if the callback is registered already.
bool Add(const Registration& registration)
{
    try {
        return g_registrations->AppendUnless(IsOf(registration.callback), registration);
    } catch (const std::bad_alloc&) {
        return true; // the callback is not registered, and the caller is not told
    }
}

} // namespace

void kiv::link::CallAtmosCallbacks(const Here& here)
{
    if (g_registrations->IsEmpty()) {
        KIV_LOG_AT(here, kLogInfo, "nothing to call");
    }
    g_registrations->ForEach([&](const Registration& registration) {
        KIV_LOG_AT(here, kLogInfo, "call cb");
        CallHost(here, [&] { registration.callback(kSupported, registration.userData); });
    });
}

void kiv::link::ForgetAtmosCallbacks()
{
    g_registrations.Destroy();
}

bool kiv_is_receiver_atmos()
{
    KIV_LOG_INFO("[%s] Enter", kApiTag);
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return false;
    }
    const Reply reply = call.Request("kiv_is_receiver_atmos");
    if (!reply) {
        return false;
    }
    const bool supported = reply.Bool();
    KIV_LOG_INFO("return value[%d]", supported);
    return supported;
}

int register_atmos_support_cb(AtmosSupportCallback callback, void* user_data)
{
    if (callback == nullptr) {
        KIV_LOG_INFO("invalid input\n");
        return kApiFailed;
    }
    if (g_registrations->IsEmpty()) {
        KIV_LOG_INFO("register vconf cb register_atmos_support_cb");
    }
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    if (!call.SendProcessId("SubscribeNamServiceCallback")) {
        return 0; // a failed call of the server does not count as a failure of the registration
    }
    if (!Add({callback, user_data})) {
        KIV_LOG_INFO("already registered cb ");
        return kApiFailed;
    }
    KIV_LOG_INFO("cregister_atmos_support_cb)");
    return 0;
}

int unregister_atmos_support_cb(AtmosSupportCallback callback)
{
    if (callback == nullptr) {
        KIV_LOG_INFO("invalid input");
        return kApiFailed;
    }
    if (g_registrations->IsEmpty()) {
        KIV_LOG_INFO("callback list is not initialized yet");
        return kApiFailed;
    }
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    if (!call.SendProcessId("UnsubscribeNamServiceCallback")) {
        return kApiFailed;
    }
    const Registrations::Removed removed = g_registrations->Remove(IsOf(callback));
    if (removed == Registrations::Removed::kNothing) {
        KIV_LOG_INFO("not registered cb");
        return kApiFailed;
    }
    if (removed == Registrations::Removed::kTheLast) {
        KIV_LOG_INFO("unregister vconf cb for panel_display_time");
    }
    KIV_LOG_INFO("cb for panel_display_time unregistered");
    return 0;
}
