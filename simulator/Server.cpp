#include "simulator/Server.h"

#include "simulator/Events.h"
#include "simulator/Interfaces.h"
#include "simulator/ShortText.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace kiv::simulator {

namespace {

constexpr unsigned kRecordedEventTimeoutMs = 20000;

// Returns an answer with more bytes behind those of its byte array.
Variant WithMoreBytes(const Variant& values, const Bytes& more)
{
    if (more.empty()) {
        return values;
    }
    GVariantBuilder members;
    g_variant_builder_init(&members, G_VARIANT_TYPE_TUPLE);
    for (std::size_t i = 0; i < g_variant_n_children(values.get()); ++i) {
        const Variant member = Own(g_variant_get_child_value(values.get(), i));
        const bool isBytes = g_variant_is_of_type(member.get(), G_VARIANT_TYPE_BYTESTRING) != FALSE;
        g_variant_builder_add_value(
            &members,
            isBytes ? NewByteArray(Writer().Append(BytesOf(member.get())).Append(more).Written()) : member.get());
    }
    return Own(g_variant_builder_end(&members));
}

} // namespace

Server::Server(GDBusConnection* connection, World& world, ClientLink link, Trace trace)
    : world_(world), link_(std::move(link)), trace_(trace), object_(connection, kServerPath, kServerXml, Handlers())
{
}

BusObject::Handlers Server::Handlers()
{
    BusObject::Handlers handlers;
    for (const auto& [name, method] : ServerMethods(world_.home, world_.clients)) {
        handlers[name] = [this, method = method](const Call& call) { Serve(call, method); };
    }
    return handlers;
}

void Server::Serve(const Call& call, const Method& method)
{
    trace_("{} -> {} {}", call.Sender(), call.Method(), ShortText(call.Arguments()));
    world_.calls.Add({call.Sender(), call.Method(), call.Flags(), Own(g_variant_ref(call.Arguments()))});

    Fault fault = world_.faults.Next(call.Method());
    std::vector<RecordedEvent> events;
    if (world_.replay && !fault.HasOutcome()) {
        RecordedAnswer recorded = Recorded(call);
        recorded.fault.delay += fault.delay;
        recorded.fault.append = fault.append;
        fault = recorded.fault;
        events = recorded.events;
    }
    const auto answer = [this, call, method, fault, events] {
        Answer(call, method, fault);
        PushRecorded(events);
    };
    if (fault.delay.count() == 0) {
        answer();
    } else {
        After(fault.delay, While(life_, answer));
    }
}

RecordedAnswer Server::Recorded(const Call& call) const
{
    if (const auto recorded = world_.replay->Next(call.Method(), call.Arguments())) {
        return *recorded;
    }
    RecordedAnswer refusal;
    refusal.fault.error = kNotRecorded;
    refusal.fault.message = world_.replay->WhyNot(call.Method(), call.Arguments());
    std::fputs(fmt::format("kiv-simulator: {}\n", refusal.fault.message).c_str(), stderr);
    return refusal;
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
        const Variant values = WithMoreBytes(fault.reply, fault.append);
        trace_("{} <- {} {}", call.Sender(), call.Method(), ShortText(values.get()));
        call.ReturnUnchecked(values.get());
    } else {
        const Variant values = WithMoreBytes(Own(method(call)), fault.append);
        trace_("{} <- {} {}", call.Sender(), call.Method(), ShortText(values.get()));
        call.Return(values.get());
        AnnounceVolumes(link_, world_.clients, world_.home.Volumes(), [](const PushResult&) {});
    }
}

void Server::PushRecorded(const std::vector<RecordedEvent>& events) const
{
    for (const RecordedEvent& event : events) {
        After(event.delay, [link = link_, event] {
            link.Call(event.client, event.method, event.arguments.get(), kRecordedEventTimeoutMs, [](const auto&) {});
        });
    }
}

} // namespace kiv::simulator
