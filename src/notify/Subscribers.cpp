#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/BusClient.h"
#include "link/EventReceivers.h"
#include "link/Lifetime.h"
#include "notify/Snapshot.h"

#include <unistd.h>

#include <map>
#include <string>

using namespace kiv::link;

namespace {

// In byte order of the names, which is the order of the calls.
using Registry = std::map<std::string, NamEventCallback>;

constinit NeverDestroyed<kiv::notify::Snapshot<Registry>> g_registry;

void ClearRegistry()
{
    g_registry->Clear();
}

const AtUnload<ClearRegistry> g_registryAtUnload;

bool IsRegistered(const std::string& name)
{
    const auto registry = g_registry->Take();
    return registry && registry->contains(name);
}

const Registry::value_type* Find(const Registry& registry, const Registry::value_type& subscription)
{
    const auto found = registry.find(subscription.first);
    return found != registry.end() ? &*found : nullptr;
}

} // namespace

void kiv::link::CallSubscribers(const Here& here, int eventId, void* data, int length)
{
    g_registry->ForEach(Find, [&](const Registry::value_type& subscription) {
        CallHost(here, [&] { subscription.second(eventId, data, length); });
    });
}

int SubscribeNamServiceCallback(const char* name, NamEventCallback callback)
{
    KIV_LOG_DEBUG("Enter");
    const ApiCall call(KIV_HERE);
    if (!call.Ready() || name == nullptr || callback == nullptr) {
        return 0;
    }
    if (!IsRegistered(name)) {
        KIV_LOG_DEBUG("%s subscribe callback successful", name);
    }
    g_registry->Change([&](Registry& registry) {
        registry.insert_or_assign(name, callback);
        return true;
    });

    const Reply reply = call.Invoke("SubscribeNamServiceCallback", g_variant_new("(i)", getpid()));
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return 0;
    }
    AdoptClientName(KIV_HERE, reply.String());
    return 1;
}

void UnsubscribeNamServiceCallback(const char* name)
{
    const ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return;
    }
    const std::string key(name);
    g_registry->Change([&](Registry& registry) { return registry.erase(key) != 0; });

    const Reply reply = call.Invoke("UnsubscribeNamServiceCallback", g_variant_new("(i)", getpid()));
    if (!reply) {
        KIV_LOG_ERROR("[%s] MethodCall Error", kApiTag);
        return;
    }
    AdoptClientName(KIV_HERE, reply.String());
}

int NodeRemoveFromWatcher(int node)
{
    const ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    return call.AnswerOrZero("NodeRemoveFromWatcher", g_variant_new("(i)", node));
}
