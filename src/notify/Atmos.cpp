#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/BusClient.h"
#include "link/EventReceivers.h"
#include "link/Lifetime.h"
#include "notify/Snapshot.h"

#include <unistd.h>

#include <algorithm>
#include <new>
#include <vector>

using namespace kiv::link;

namespace {

struct Registration {
    AtmosSupportCallback callback;
    void* userData;
};

// In order of registration, which is the order of the calls; no callback twice.
using Registrations = std::vector<Registration>;

constexpr int kSupported = 1;

constinit NeverDestroyed<kiv::notify::Snapshot<Registrations>> g_registrations;

void ClearRegistrations()
{
    g_registrations->Clear();
}

const AtUnload<ClearRegistrations> g_registrationsAtUnload;

const Registration* Find(const Registrations& registrations, const Registration& wanted)
{
    const auto found = std::ranges::find(registrations, wanted.callback, &Registration::callback);
    return found != registrations.end() ? &*found : nullptr;
}

// False if the callback is registered already.
bool Add(const Registration& registration)
{
    try {
        return g_registrations->Change([&](Registrations& registrations) {
            if (Find(registrations, registration) != nullptr) {
                return false;
            }
            registrations.push_back(registration);
            return true;
        });
    } catch (const std::bad_alloc&) {
        return true; // not registered then, and the caller is not told
    }
}

enum class Removed { kNothing, kOneOfMany, kTheLast };

Removed Remove(AtmosSupportCallback callback)
{
    Removed removed = Removed::kNothing;
    g_registrations->Change([&](Registrations& registrations) {
        if (std::erase_if(registrations, [&](const Registration& one) { return one.callback == callback; }) != 0) {
            removed = registrations.empty() ? Removed::kTheLast : Removed::kOneOfMany;
        }
        return removed != Removed::kNothing;
    });
    return removed;
}

bool NoneRegistered()
{
    return g_registrations->Take() == nullptr;
}

} // namespace

void kiv::link::CallAtmosCallbacks(const Here& here)
{
    if (NoneRegistered()) {
        KIV_LOG_AT(here, kLogInfo, "nothing to call");
    }
    g_registrations->ForEach(Find, [&](const Registration& registration) {
        KIV_LOG_AT(here, kLogInfo, "call cb");
        CallHost(here, [&] { registration.callback(kSupported, registration.userData); });
    });
}

bool kiv_is_receiver_atmos()
{
    KIV_LOG_INFO("[%s] Enter", kApiTag);
    const ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return false;
    }
    const Reply reply = call.Invoke("kiv_is_receiver_atmos");
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return false;
    }
    const bool supported = reply.Bool(false);
    KIV_LOG_INFO("return value[%d]", supported);
    return supported;
}

int register_atmos_support_cb(AtmosSupportCallback callback, void* user_data)
{
    if (callback == nullptr) {
        KIV_LOG_INFO("invalid input\n");
        return kApiFailed;
    }
    if (NoneRegistered()) {
        KIV_LOG_INFO("register vconf cb register_atmos_support_cb");
    }
    const ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    const Reply reply = call.Invoke("SubscribeNamServiceCallback", g_variant_new("(i)", getpid()));
    if (!reply) {
        // A server that refuses is not the caller's failure.
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return 0;
    }
    AdoptClientName(KIV_HERE, reply.String());
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
    if (NoneRegistered()) {
        KIV_LOG_INFO("callback list is not initialized yet");
        return kApiFailed;
    }
    const ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    const Reply reply = call.Invoke("UnsubscribeNamServiceCallback", g_variant_new("(i)", getpid()));
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return kApiFailed;
    }
    AdoptClientName(KIV_HERE, reply.String());
    const Removed removed = Remove(callback);
    if (removed == Removed::kNothing) {
        KIV_LOG_INFO("not registered cb");
        return kApiFailed;
    }
    if (removed == Removed::kTheLast) {
        KIV_LOG_INFO("unregister vconf cb for panel_display_time");
    }
    KIV_LOG_INFO("cb for panel_display_time unregistered");
    return 0;
}
