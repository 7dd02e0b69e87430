#include "tools/sandbox/BusTrace.h"

#include "simulator/Interfaces.h"
#include "simulator/ShortText.h"
#include "tools/sandbox/Connection.h"

#include <fmt/format.h>

#include <limits>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace kiv::sandbox {

namespace {

std::string Text(const char* text)
{
    return text == nullptr ? "" : text;
}

// Returns a body as GVariant text.
std::string Print(const Message& message, gboolean withTypes)
{
    return message.body ? simulator::TakeText(g_variant_print(message.body.get(), withTypes)) : "()";
}

std::string DescribeFlags(GDBusMessageFlags flags)
{
    std::string text;
    if ((flags & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) != 0) {
        text += " [no reply expected]";
    }
    if ((flags & G_DBUS_MESSAGE_FLAGS_NO_AUTO_START) != 0) {
        text += " [no auto-start]";
    }
    return text;
}

Message Copy(GDBusMessage* message)
{
    GVariant* body = g_dbus_message_get_body(message);
    return {
        .type = g_dbus_message_get_message_type(message),
        .flags = g_dbus_message_get_flags(message),
        .serial = g_dbus_message_get_serial(message),
        .replySerial = g_dbus_message_get_reply_serial(message),
        .sender = Text(g_dbus_message_get_sender(message)),
        .destination = Text(g_dbus_message_get_destination(message)),
        .path = Text(g_dbus_message_get_path(message)),
        .interface = Text(g_dbus_message_get_interface(message)),
        .member = Text(g_dbus_message_get_member(message)),
        .errorName = Text(g_dbus_message_get_error_name(message)),
        .signature = Text(g_dbus_message_get_signature(message)),
        .body = body == nullptr ? nullptr : std::shared_ptr<GVariant>(g_variant_ref(body), g_variant_unref)};
}

} // namespace

std::string Message::TypedBodyText() const
{
    return Print(*this, TRUE);
}

std::string Message::ErrorText() const
{
    if (!body || !signature.starts_with('s')) {
        return "";
    }
    const char* text = nullptr;
    g_variant_get_child(body.get(), 0, "&s", &text);
    return text;
}

std::string Message::BodyText() const
{
    return Print(*this, FALSE);
}

bool IsServerCall(const Message& message)
{
    return message.type == G_DBUS_MESSAGE_TYPE_METHOD_CALL && message.interface == simulator::kServerInterface;
}

std::string Describe(const Message& message)
{
    const std::string body = message.body ? simulator::ShortText(message.body.get()) : "()";
    switch (message.type) {
    case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
        return fmt::format(
            "{} -> {} {}{}{}", message.sender, message.destination, message.member, body, DescribeFlags(message.flags));
    case G_DBUS_MESSAGE_TYPE_METHOD_RETURN:
        return fmt::format("{} <- {} returns {}", message.destination, message.sender, body);
    case G_DBUS_MESSAGE_TYPE_ERROR:
        return fmt::format("{} <- {} error {} {}", message.destination, message.sender, message.errorName, body);
    default:
        return fmt::format(
            "{} -> {} signal {}{}", message.sender, message.destination.empty() ? "all" : message.destination,
            message.member, body);
    }
}

// The data that the trace shares with the thread on which GIO reads the monitor's connection. The connection owns the
// data, because that thread may still be in the filter when the trace has been destroyed.
struct BusTrace::Tap {
    // One mutex for all traces. It also covers the creation and the end of each, because race detectors do not see
    // GLib's own locks.
    static inline std::mutex mutex;

    Listener listener;
    std::vector<Message> messages;
    std::string monitorName;
    std::string fenceName;
    GMainContext* waiter;  // woken at each answer to the fence; null once the trace has gone
    guint32 lastFence = 0; // serial of the fence's newest call that has come by with its answer

    static GDBusMessage* Filter(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer tap)
    {
        const std::lock_guard lock(mutex);
        if (incoming == FALSE || !static_cast<Tap*>(tap)->Take(message)) {
            return message;
        }
        // The message is dropped here, because GIO would answer the calls that it sees, and a monitor must not send.
        g_object_unref(message);
        return nullptr;
    }

    static void Free(gpointer tap)
    {
        const std::lock_guard lock(mutex);
        delete static_cast<Tap*>(tap);
    }

    // Returns false for a message to the monitor itself.
    bool Take(GDBusMessage* message)
    {
        const std::string destination = Text(g_dbus_message_get_destination(message));
        if (destination == monitorName) {
            return false;
        }
        if (waiter == nullptr) {
            return true;
        }
        if (destination == fenceName) {
            lastFence = g_dbus_message_get_reply_serial(message);
            g_main_context_wakeup(waiter);
        } else if (!IsOwnTraffic(message)) {
            listener ? listener(Copy(message)) : messages.push_back(Copy(message));
        }
        return true;
    }

    bool IsOwnTraffic(GDBusMessage* message) const
    {
        const std::string member = Text(g_dbus_message_get_member(message));
        const std::string subject = Text(member == "NameOwnerChanged" ? g_dbus_message_get_arg0(message) : nullptr);
        return Text(g_dbus_message_get_sender(message)) == fenceName || subject == monitorName || subject == fenceName;
    }

    bool HasSeenFence(guint32 serial) const
    {
        const std::lock_guard lock(mutex);
        return lastFence >= serial;
    }
};

BusTrace::BusTrace(const std::string& address) : BusTrace(address, nullptr) {}

BusTrace::BusTrace(const std::string& address, Listener listener)
    : fence_(std::make_unique<Connection>(address)), monitor_(std::make_unique<Connection>(address))
{
    {
        const std::lock_guard lock(Tap::mutex);
        tap_ = new Tap{
            .listener = std::move(listener),
            .messages = {},
            .monitorName = monitor_->UniqueName(),
            .fenceName = fence_->UniqueName(),
            .waiter = monitor_->Context()};
    }
    g_dbus_connection_add_filter(monitor_->Get(), Tap::Filter, tap_, Tap::Free);
    monitor_->CallDaemon("org.freedesktop.DBus.Monitoring", "BecomeMonitor", g_variant_new_parsed("(@as [], @u 0)"));
}

BusTrace::~BusTrace()
{
    const std::lock_guard lock(Tap::mutex);
    tap_->waiter = nullptr;
}

void BusTrace::Flush()
{
    const std::lock_guard lock(flushMutex_);
    guint32 serial = std::numeric_limits<guint32>::max();
    try {
        serial = fence_->CallDaemon("org.freedesktop.DBus.Peer", "Ping");
    } catch (const std::runtime_error&) {
        // The daemon has ended. Everything that it sent has arrived when the monitor's connection has ended, too.
    }
    while (!tap_->HasSeenFence(serial) && g_dbus_connection_is_closed(monitor_->Get()) == FALSE) {
        g_main_context_iteration(monitor_->Context(), TRUE);
    }
}

std::vector<Message> BusTrace::Messages()
{
    Flush();
    const std::lock_guard lock(Tap::mutex);
    return tap_->messages;
}

void BusTrace::Clear()
{
    Flush();
    const std::lock_guard lock(Tap::mutex);
    tap_->messages.clear();
}

} // namespace kiv::sandbox
