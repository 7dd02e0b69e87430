#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/EventReceivers.h"
#include "link/Lifetime.h"
#include "notify/Receivers.h"

#include <new>
#include <stdexcept>
#include <string>

using namespace kiv::link;

namespace {

// Ordered by the bytes of the names, which is the order of the calls.
NeverDestroyed<kiv::notify::Receivers<std::string, NamEventCallback>> g_subscribers;

auto IsCalled(const char* wanted)
{
    return [wanted](const std::string& name, NamEventCallback) { return name == wanted; };
}

// Returns false if there is no memory for the subscriber.
bool Add(const char* name, NamEventCallback callback)
{
    try {
        g_subscribers->AddOrReplace(name, callback);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

} // namespace

void kiv::link::CallSubscribers(const Here& here, int eventId, void* data, int length)
{
    g_subscribers->ForEach(
        [&](NamEventCallback callback) { CallHost(here, [&] { callback(eventId, data, length); }); });
}

void kiv::link::ForgetSubscribers()
{
    g_subscribers.Destroy();
}

int SubscribeNamServiceCallback(const char* name, NamEventCallback callback)
{
    KIV_LOG_DEBUG("Enter");
    ApiCall call(KIV_HERE);
    if (!call.Ready() || name == nullptr || callback == nullptr) {
        return 0;
    }
    if (!g_subscribers->Contains(IsCalled(name))) {
        KIV_LOG_DEBUG("%s subscribe callback successful", name);
    }
    if (!Add(name, callback)) {
        KIV_LOG_ERROR("[%s] no memory for the subscriber %s", kApiTag, name);
        return 0;
    }
    return call.SendProcessId("SubscribeNamServiceCallback") ? 1 : 0;
}

void UnsubscribeNamServiceCallback(const char* name)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return;
    }
    if (name == nullptr) {
        throw std::logic_error("the subscriber's name is null");
    }
    g_subscribers->Remove(IsCalled(name));
    call.SendProcessId("UnsubscribeNamServiceCallback");
}

int NodeRemoveFromWatcher(int node)
{
    ApiCall call(KIV_HERE);
    if (!call.Ready()) {
        return kApiFailed;
    }
    return call.AnswerOrZero("NodeRemoveFromWatcher", g_variant_new("(i)", node));
}
