#include "simulator/ClientLink.h"

#include "simulator/ClientNames.h"
#include "simulator/Interfaces.h"
#include "simulator/ShortText.h"
#include "src/link/Owners.h"

#include <algorithm>
#include <climits>
#include <utility>

namespace kiv::simulator {

namespace {

constexpr char kNotifyMethod[] = "nam_notify_subscriber";
constexpr unsigned kPushTimeoutMs = 20000;
constexpr char kTimeout[] = "org.freedesktop.DBus.Error.Timeout";
// The bus daemon limits the number of answers that a connection waits for.
constexpr std::uint64_t kMostOutstanding = 1000;

void RequireUsable(const std::string& clientId)
{
    if (!ClientLink::IsUsable(clientId)) {
        throw InvalidArguments(fmt::format("no client can have the id \"{}\"", clientId));
    }
}

ClientAnswer AnswerOf(GDBusMessage* reply)
{
    ClientAnswer answer;
    answer.fromClient = g_strcmp0(g_dbus_message_get_sender(reply), kBusName) != 0;
    link::ErrorOwner error;
    if (g_dbus_message_to_gerror(reply, error.Out()) != FALSE) {
        g_dbus_error_strip_remote_error(error.get());
        answer.error = g_dbus_message_get_error_name(reply);
        answer.message = error->message;
        return answer;
    }
    if (GVariant* body = g_dbus_message_get_body(reply)) {
        answer.reply = Own(g_variant_ref(body));
    }
    return answer;
}

ClientAnswer NoAnswer(GError* error)
{
    ClientAnswer answer;
    const bool late = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE;
    answer.error = late ? kTimeout : "org.freedesktop.DBus.Error.Failed";
    answer.message = error->message;
    return answer;
}

void OnReply(GObject* connection, GAsyncResult* result, void* data)
{
    const std::unique_ptr<ClientLink::OnAnswer> onAnswer(static_cast<ClientLink::OnAnswer*>(data));
    link::ErrorOwner error;
    const auto reply =
        OwnObject(g_dbus_connection_send_message_with_reply_finish(G_DBUS_CONNECTION(connection), result, error.Out()));
    (*onAnswer)(reply == nullptr ? NoAnswer(error.get()) : AnswerOf(reply.get()));
}

// Returns a line that says which client a push has not reached, and why.
std::string Failure(const std::string& clientId, const ClientAnswer& answer)
{
    if (answer.error == kTimeout) {
        return fmt::format("client {} gave no answer within {} s", clientId, kPushTimeoutMs / 1000);
    }
    return fmt::format("client {}: {}: {}", clientId, answer.error, answer.message);
}

// Pushes that are under way. The callbacks that wait for the answers keep this object alive.
class Burst : public std::enable_shared_from_this<Burst> {
public:
    Burst(
        ClientLink link, std::vector<std::string> clientIds, const Variant& payload, unsigned count,
        ClientLink::OnPushed onPushed)
        : link_(std::move(link)), clientIds_(std::move(clientIds)),
          arguments_(Own(g_variant_new("(@ay)", payload.get()))), total_(std::uint64_t{count} * clientIds_.size()),
          onPushed_(std::move(onPushed))
    {
    }

    void Continue()
    {
        while (sent_ < total_ && sent_ - ended_ < kMostOutstanding) {
            const std::string& clientId = clientIds_[static_cast<std::size_t>(sent_ % clientIds_.size())];
            ++sent_;
            link_.Call(
                clientId, kNotifyMethod, arguments_.get(), kPushTimeoutMs,
                [self = shared_from_this(), clientId](const ClientAnswer& answer) { self->Note(clientId, answer); });
        }
        if (ended_ == total_) {
            onPushed_(result_);
        }
    }

private:
    void Note(const std::string& clientId, const ClientAnswer& answer)
    {
        ++ended_;
        if (answer.error.empty()) {
            ++result_.answered;
        } else if (result_.firstError.empty()) {
            result_.firstError = answer.error;
            result_.firstMessage = Failure(clientId, answer);
        }
        Continue();
    }

    ClientLink link_;
    std::vector<std::string> clientIds_;
    Variant arguments_;
    std::uint64_t total_;
    std::uint64_t sent_ = 0;
    std::uint64_t ended_ = 0;
    PushResult result_;
    ClientLink::OnPushed onPushed_;
};

} // namespace

bool ClientLink::IsUsable(const std::string& clientId)
{
    return ClientNames(clientId).Fit();
}

void ClientLink::Call(
    const std::string& clientId, const std::string& method, GVariant* arguments, unsigned timeoutMs,
    OnAnswer onAnswer) const
{
    RequireUsable(clientId);
    if (g_dbus_is_member_name(method.c_str()) == FALSE) {
        throw InvalidArguments(fmt::format("D-Bus cannot carry a method named \"{}\"", method));
    }
    const ClientNames client(clientId);
    const auto message = OwnObject(g_dbus_message_new_method_call(
        client.name.c_str(), client.path.c_str(), client.interface.c_str(), method.c_str()));
    g_dbus_message_set_flags(message.get(), G_DBUS_MESSAGE_FLAGS_NO_AUTO_START);
    g_dbus_message_set_body(message.get(), arguments);

    trace_("{} <- {} {}", clientId, method, ShortText(arguments));
    auto traced = [trace = trace_, clientId, onAnswer = std::move(onAnswer)](const ClientAnswer& answer) {
        trace("{} -> {}", clientId, answer.error.empty() ? ShortText(answer.reply.get()) : answer.error);
        onAnswer(answer);
    };
    g_dbus_connection_send_message_with_reply(
        connection_.get(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
        static_cast<int>(std::min<unsigned>(timeoutMs, INT_MAX)), nullptr, nullptr, &OnReply,
        new OnAnswer(std::move(traced)));
}

void ClientLink::Push(
    const std::vector<std::string>& clientIds, const Variant& payload, unsigned count, OnPushed onPushed) const
{
    std::ranges::for_each(clientIds, RequireUsable);
    std::make_shared<Burst>(*this, clientIds, payload, count, std::move(onPushed))->Continue();
}

} // namespace kiv::simulator
