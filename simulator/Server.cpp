#include "simulator/Server.h"

#include "simulator/Interfaces.h"

#include <unistd.h>

#include <cstdlib>
#include <map>
#include <utility>

namespace kiv::simulator {

namespace {

/** Far fewer than would fit into one message. */
constexpr std::size_t kMostRecorded = 100000;

GVariant* Tuple(int value)
{
    return g_variant_new("(i)", value);
}

GVariant* Tuple(bool value)
{
    return g_variant_new("(b)", value ? TRUE : FALSE);
}

GVariant* Tuple(const std::string& value)
{
    return g_variant_new("(s)", value.c_str());
}

} // namespace

Server::Server(GDBusConnection* connection, Home& home, Clients& clients, Faults& faults, Trace trace)
    : home_(home), clients_(clients), faults_(faults), trace_(trace), calls_(kMostRecorded),
      object_(connection, kServerPath, kServerXml, Handlers())
{
}

BusObject::Handlers Server::Handlers()
{
    const std::map<std::string, Method> methods = {
        {"check_dbus_connection",
         [this](const Call& call) { return Tuple(clients_.Meet(call.Argument<int>(0), call.Sender())); }},
        {"SetNetSpkSettingMode",
         [this](const Call& call) {
             return Tuple(home_.SetSettingMode(call.Argument<int>(0), call.Argument<int>(1)));
         }},
        {"StartNetworkSpeaker",
         [this](const Call& call) { return Tuple(home_.StartSpeakers(call.Argument<Bytes>(0))); }},
        {"StopNetworkSpeaker", [this](const Call& call) { return Tuple(home_.StopSpeakers(call.Argument<int>(0))); }},
        {"DisableSurround", [this](const Call&) { return Tuple(home_.DisableSurround()); }},
        {"GetSurroundChannelNumber", [this](const Call&) { return Tuple(home_.SurroundChannels()); }},
        {"SubscribeNamServiceCallback",
         [this](const Call& call) { return Tuple(clients_.Subscribe(call.Argument<int>(0), call.Sender())); }},
        {"UnsubscribeNamServiceCallback",
         [this](const Call& call) { return Tuple(clients_.Unsubscribe(call.Argument<int>(0), call.Sender())); }},
        {"NodeRemoveFromWatcher",
         [this](const Call& call) { return Tuple(home_.StopWatching(call.Argument<int>(0))); }},
        {"kiv_is_receiver_atmos", [this](const Call&) { return Tuple(home_.ReceiverHasAtmos()); }},
    };

    BusObject::Handlers handlers;
    for (const auto& [name, method] : methods) {
        handlers[name] = [this, method = method](const Call& call) { Serve(call, method); };
    }
    return handlers;
}

void Server::Serve(const Call& call, const Method& method)
{
    trace_("{} -> {} {}", call.Sender(), call.Method(), Describe(call.Arguments()));
    calls_.Add({call.Sender(), call.Method(), call.Flags(), Own(g_variant_ref(call.Arguments()))});

    const Fault fault = faults_.Next(call.Method());
    if (fault.delay.count() == 0) {
        Answer(call, method, fault);
    } else {
        After(fault.delay, [this, call, method, fault] { Answer(call, method, fault); });
    }
}

void Server::Answer(const Call& call, const Method& method, const Fault& fault) const
{
    if (fault.exit) {
        trace_("{} <- {} dying", call.Sender(), call.Method());
        _exit(EXIT_FAILURE);
    }
    if (fault.silent) {
        trace_("{} <- {} no answer", call.Sender(), call.Method());
    } else if (!fault.error.empty()) {
        trace_("{} <- {} {}: {}", call.Sender(), call.Method(), fault.error, fault.message);
        call.Fail(fault.error, fault.message);
    } else if (fault.reply != nullptr) {
        trace_("{} <- {} {}", call.Sender(), call.Method(), Describe(fault.reply.get()));
        call.ReturnUnchecked(fault.reply.get());
    } else {
        const Variant values = Own(method(call));
        trace_("{} <- {} {}", call.Sender(), call.Method(), Describe(values.get()));
        call.Return(values.get());
    }
}

} // namespace kiv::simulator
