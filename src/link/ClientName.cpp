#include "link/ClientName.h"

#include "link/SystemBus.h"

#include <cstring>
#include <utility>

namespace kiv::link {

namespace {

constexpr const char* kLostSignal = "NameLost";
constexpr const char* kAcquiredSignal = "NameAcquired";
constexpr guint kNoFlags = 0;

// The bus's answers to RequestName, as D-Bus numbers them. After any other answer, the name counts as lost.
constexpr guint kPrimaryOwner = 1;
constexpr guint kInQueue = 2;

// Used on the monitor thread alone.
int g_pendingAnswers;

} // namespace

// A request that the bus has not answered yet. It lives until GIO completes the call, which may be after the name is
// released.
struct ClientName::Pending {
    ClientName* name;
};

bool ClientName::IsAnswerPending()
{
    return g_pendingAnswers != 0;
}

void ClientName::Request(GDBusConnection* connection, const char* name)
{
    Release();
    connection_ = connection;
    name_ = CopyOf(name);
    // The subscriptions come before the request, so that no change of the owner is missed.
    lostSignal_ = Listen(kLostSignal);
    acquiredSignal_ = Listen(kAcquiredSignal);
    isToBeReleased_ = true;
    cancellable_.reset(g_cancellable_new());
    pending_ = g_new(Pending, 1);
    pending_->name = this;
    ++g_pendingAnswers;
    g_dbus_connection_call(
        connection, kBusName, kBusPath, kBusInterface, "RequestName", g_variant_new("(su)", name, kNoFlags),
        G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, kDefaultTimeoutMs, cancellable_.get(), OnAnswer, pending_);
}

void ClientName::Release()
{
    if (connection_ == nullptr) {
        return;
    }
    if (pending_ != nullptr) {
        std::exchange(pending_, nullptr)->name = nullptr;
        g_cancellable_cancel(cancellable_.get());
    }
    g_dbus_connection_signal_unsubscribe(connection_, lostSignal_);
    g_dbus_connection_signal_unsubscribe(connection_, acquiredSignal_);
    if (IsClosed(connection_)) {
        Tell(Told::kLost);
    } else if (isToBeReleased_) {
        // Without a callback, g_dbus_connection_call() would send the flag "no reply expected". This function does not
        // send it. GIO drops the reply, because it does not know the serial.
        const MessageOwner message(g_dbus_message_new_method_call(kBusName, kBusPath, kBusInterface, "ReleaseName"));
        g_dbus_message_set_body(message.get(), g_variant_new("(s)", name_.get()));
        g_dbus_connection_send_message(connection_, message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    }
    told_ = Told::kNothing;
    connection_ = nullptr;
}

void ClientName::OnAnswer(GObject* connection, GAsyncResult* result, gpointer pending)
{
    const std::unique_ptr<Pending, Releaser<g_free>> request(static_cast<Pending*>(pending));
    const VariantOwner reply(g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, nullptr));
    --g_pendingAnswers;
    ClientName* const self = request->name;
    if (self == nullptr) {
        return;
    }
    self->pending_ = nullptr;
    const guint answer = reply ? g_variant_get_uint32(Member(reply.get()).get()) : 0;
    self->isToBeReleased_ = answer == kPrimaryOwner || answer == kInQueue;
    self->Tell(answer == kPrimaryOwner ? Told::kAcquired : Told::kLost);
}

void ClientName::OnSignal(
    GDBusConnection* /*connection*/, const gchar* /*sender*/, const gchar* /*path*/, const gchar* /*interface*/,
    const gchar* signal, GVariant* /*parameters*/, gpointer self)
{
    static_cast<ClientName*>(self)->Tell(std::strcmp(signal, kLostSignal) == 0 ? Told::kLost : Told::kAcquired);
}

// Subscribes to NameLost or NameAcquired. The bus sends them to the owner alone, so GIO adds no match rule for them.
guint ClientName::Listen(const char* signal)
{
    return g_dbus_connection_signal_subscribe(
        connection_, kBusName, kBusInterface, signal, kBusPath, name_.get(), G_DBUS_SIGNAL_FLAGS_NONE, OnSignal, this,
        nullptr);
}

// Calls the handler once for each change. The bus reports a new owner twice: by a signal, and in its answer.
void ClientName::Tell(Told told)
{
    if (told_ != told) {
        told_ = told;
        (told == Told::kAcquired ? onAcquired_ : onLost_)(connection_, name_.get(), data_);
    }
}

} // namespace kiv::link
