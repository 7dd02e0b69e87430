#include "simulator/Server.h"

#include "simulator/Events.h"
#include "simulator/Interfaces.h"

#include <unistd.h>

#include <cstdlib>
#include <utility>

namespace kiv::simulator {

namespace {

/** Far fewer than would fit into one message. */
constexpr std::size_t kMostRecorded = 100000;

} // namespace

Server::Server(
    GDBusConnection* connection, Home& home, Clients& clients, Faults& faults, const ClientLink& link, Trace trace)
    : home_(home), clients_(clients), faults_(faults), link_(link), trace_(trace), calls_(kMostRecorded),
      object_(connection, kServerPath, kServerXml, Handlers())
{
}

BusObject::Handlers Server::Handlers()
{
    BusObject::Handlers handlers;
    for (const auto& [name, method] : ServerMethods(home_, clients_)) {
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
        ReportVolumes();
    }
}

void Server::ReportVolumes() const
{
    const Bytes volumes = home_.Volumes().TakeReport();
    if (!volumes.empty()) {
        Announce(link_, clients_, EventPayload(kVolumeEvent, volumes), [] {});
    }
}

} // namespace kiv::simulator
