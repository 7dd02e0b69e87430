#include "link/EventDispatch.h"

#include "KivServiceInterface.h"
#include "link/Bytes.h"
#include "link/EventReceivers.h"
#include "link/Reply.h"

#include <algorithm>

namespace kiv::link {

namespace {

constexpr const char* kEventMethod = "nam_notify_subscriber";

#pragma pack(push, 1)

// The head of an event. Its data follow.
struct EventHead {
    std::int32_t id;
    std::int32_t length;
};

#pragma pack(pop)

void Dispatch(const Here& here, int eventId, int length, Bytes data)
{
    unsigned char buffer[NAMSERVICE_EVENT_DATA_MAX] = {};
    if (length > 0) {
        length = std::min(length, NAMSERVICE_EVENT_DATA_MAX);
        // Receivers get the announced length. Bytes that did not arrive are zero.
        CopyUpTo(std::span(buffer, static_cast<std::size_t>(length)), data);
    }
    if (eventId == NAMSERVICE_EXIT_STATE) {
        KIV_LOG_AT(here, kLogInfo, "receive NAMSERVICE_EXIT_STATE");
    } else if (eventId == NAMSERVICE_ATMOS_STATE) {
        CallAtmosCallbacks(here);
    }
    CallSubscribers(here, eventId, buffer, length);
}

} // namespace

void NamClientReceiveHandleEvent(
    GDBusConnection* /*connection*/, const gchar* /*sender*/, const gchar* objectPath, const gchar* interfaceName,
    const gchar* methodName, GVariant* parameters, GDBusMethodInvocation* invocation, gpointer /*userData*/)
{
    KIV_LOG_INFO(
        "[%s] object_path[%s], interface_name[%s], method_name[%s]", kApiTag, objectPath, interfaceName, methodName);
    if (g_strcmp0(methodName, kEventMethod) == 0) {
        NamNotifySubscriber(parameters, invocation);
    } else {
        g_object_unref(invocation);
    }
}

bool NamNotifySubscriber(GVariant* parameters, GDBusMethodInvocation* invocation)
{
    InvocationOwner unanswered(invocation);
    KIV_LOG_INFO("[%s] ** Enter **", kApiTag);
    if (parameters == nullptr) {
        KIV_LOG_ERROR("(%s) return", "return_data == NULL");
        return false;
    }
    VariantOwner child;
    if (CheckType(KIV_HERE, kEventMethod, parameters, "(ay)")) {
        child = Member(parameters);
    }
    g_dbus_method_invocation_return_value(unanswered.release(), nullptr);

    // A payload of another type counts as an empty one.
    const Bytes payload = child ? BytesIn(child.get()) : Bytes();
    const auto head = Front<EventHead>(payload);
    if (payload.empty()) {
        KIV_LOG_ERROR("NULL payload");
    } else if (head.id != 0) {
        Dispatch(KIV_HERE, head.id, head.length, From(payload, sizeof head));
    }
    return !payload.empty();
}

} // namespace kiv::link
