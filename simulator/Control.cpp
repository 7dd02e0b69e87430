#include "simulator/Control.h"

#include "simulator/Answer.h"
#include "simulator/Events.h"
#include "simulator/Interfaces.h"
#include "simulator/Scenario.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <utility>

namespace kiv::simulator {

namespace {

Scenario ReadGiven(const std::string& text)
{
    try {
        return ReadScenario("scenario", text);
    } catch (const FileError& error) {
        throw InvalidArguments(error.what());
    }
}

Variant CountAnswered(const PushResult& result)
{
    return Own(g_variant_new("(u)", static_cast<std::uint32_t>(result.answered)));
}

// Answers a call that has pushed events to clients with the values. Fails if one of the clients could not be reached,
// or answered with an error. A client's InvalidArgs becomes a failed request, because it does not concern the arguments
// of this call.
void Answer(const Call& call, const PushResult& result, const Variant& values = nullptr)
{
    if (result.firstError.empty()) {
        call.Return(values.get());
    } else {
        const bool isMisleading = result.firstError == kInvalidArguments;
        call.Fail(isMisleading ? "org.freedesktop.DBus.Error.Failed" : result.firstError, result.firstMessage);
    }
}

constexpr char kNeedsHome[] = "it has a home only without --replay";
constexpr char kNeedsIds[] = "client ids are those of the recording";
constexpr char kNeedsClient[] = "it does not know its clients, so name one with --client";

// Returns what a replay lacks for a change, or null if it lacks nothing.
const char* LackedFor(const Change& change)
{
    if (!change.home.IsEmpty()) {
        return kNeedsHome;
    }
    if (change.clientId) {
        return kNeedsIds;
    }
    const bool isForAll =
        std::ranges::any_of(change.events, [](const EventPush& event) { return event.client.empty(); });
    return isForAll ? kNeedsClient : nullptr;
}

Mac ReadMac(const Call& call)
{
    const auto text = call.Argument<std::string>(0);
    const auto mac = ParseMac(text);
    if (!mac) {
        throw InvalidArguments(fmt::format("MAC must be a MAC address such as 02:4b:49:56:00:01, got \"{}\"", text));
    }
    return *mac;
}

} // namespace

Control::Control(GDBusConnection* connection, World& world, ClientLink link, Actions actions)
    : world_(world), link_(std::move(link)), actions_(std::move(actions)),
      object_(connection, kControlPath, kControlXml, Handlers())
{
}

void Control::AnswerWaiting()
{
    if (waiting_.empty()) {
        return;
    }
    const std::string state = State();
    std::erase_if(waiting_, [&state](const Waiting& waiting) {
        const bool hasChanged = waiting.known != state;
        if (hasChanged) {
            waiting.call.Return(g_variant_new("(s)", state.c_str()));
        }
        return hasChanged;
    });
}

BusObject::Handlers Control::Handlers()
{
    // Does something, and then answers.
    const auto done = [](auto act) {
        return [act](const Call& call) {
            act(call);
            call.Return();
        };
    };
    // Applies a scenario that changes one thing now.
    const auto applied = [this](auto change) {
        return [this, change](const Call& call) {
            Scenario scenario;
            change(scenario.now, call);
            Apply(call, scenario);
        };
    };
    return {
        {"Calls", [this](const Call& call) { Calls(call); }},
        {"ForgetCalls", done([this](const Call&) { world_.calls.Forget(); })},
        {"Fault", done([this](const Call& call) {
             world_.faults.Set(call.Argument<std::string>(0), call.Argument<Variant>(1).get());
         })},
        {"ClearFault", done([this](const Call& call) { world_.faults.Clear(call.Argument<std::string>(0)); })},
        {"ClearFaults", done([this](const Call&) { world_.faults.Clear(); })},
        {"ClientId", done([this](const Call& call) { UseClientId(call.Argument<std::string>(0)); })},
        {"ResetClientId", done([this](const Call&) { UseClientId(std::nullopt); })},
        {"Feature", applied([](Change& now, const Call& call) { now.feature = call.Argument<std::string>(0); })},
        {"Atmos", applied([](Change& now, const Call& call) { now.home.receiverHasAtmos = call.Argument<bool>(0); })},
        {"Away", applied([](Change& now, const Call& call) {
             now.away = std::chrono::milliseconds(call.Argument<std::uint32_t>(0));
         })},
        {"Event",
         [this](const Call& call) {
             Push(call, EventPayload(call.Argument<std::int32_t>(1), call.Argument<Bytes>(2)));
         }},
        {"Payload", [this](const Call& call) { Push(call, call.Argument<Variant>(1)); }},
        {"Payloads", [this](const Call& call) { SendPayloads(call); }},
        {"CallClient", [this](const Call& call) { CallClient(call); }},
        {"Volume", [this](const Call& call) { Volume(call); }},
        {"Plug", done([this](const Call& call) { Plug(call); })},
        {"Show",
         [this](const Call& call) {
             RefuseInReplay(kNeedsHome);
             call.Return(g_variant_new("(s)", State().c_str()));
         }},
        {"AwaitChange",
         [this](const Call& call) {
             RefuseInReplay(kNeedsHome);
             waiting_.push_back({call, call.Argument<std::string>(0)});
         }},
        {"Apply", [this](const Call& call) { Apply(call, ReadGiven(call.Argument<std::string>(0))); }},
        {"AwaitServer", [this](const Call& call) { actions_.awaitServer([call] { call.Return(); }); }},
        {"Exit", [this](const Call& call) { actions_.leave([call] { call.Return(); }); }},
    };
}

void Control::RefuseInReplay(const char* reason) const
{
    if (world_.replay) {
        throw InvalidArguments(fmt::format("the server replays {}; {}", world_.replay->Name(), reason));
    }
}

std::vector<std::string> Control::Addressed(const std::string& clientId) const
{
    if (clientId.empty()) {
        RefuseInReplay(kNeedsClient);
    }
    return clientId.empty() ? world_.clients.Ids() : std::vector<std::string>{clientId};
}

void Control::UseClientId(std::optional<std::string> id) const
{
    RefuseInReplay(kNeedsIds);
    world_.clients.UseId(std::move(id));
}

void Control::Calls(const Call& call) const
{
    GVariantBuilder calls;
    g_variant_builder_init(&calls, G_VARIANT_TYPE("a(ussuv)"));
    unsigned number = world_.calls.FirstNumber();
    for (const RecordedCall& received : world_.calls.Calls()) {
        g_variant_builder_add(
            &calls, "(ussuv)", number++, received.sender.c_str(), received.method.c_str(), received.flags,
            Wrap(received.arguments.get()).get());
    }
    call.Return(g_variant_new("(a(ussuv))", &calls));
}

void Control::Apply(const Call& call, const Scenario& scenario) const
{
    std::vector<Change> changes = {scenario.now};
    for (const Appointment& appointment : scenario.timetable.value_or(std::vector<Appointment>())) {
        changes.push_back(appointment.change);
    }
    for (const Change& change : changes) {
        if (const char* const reason = LackedFor(change)) {
            RefuseInReplay(reason);
        }
    }
    actions_.apply(scenario, [call](const PushResult& result) { Answer(call, result); });
}

void Control::Push(const Call& call, const Variant& payload) const
{
    link_.Push(Addressed(call.Argument<std::string>(0)), payload, 1, [call](const PushResult& result) {
        Answer(call, result, CountAnswered(result));
    });
}

void Control::SendPayloads(const Call& call) const
{
    link_.Push(
        Addressed(call.Argument<std::string>(0)), call.Argument<Variant>(1), call.Argument<std::uint32_t>(2),
        [call](const PushResult& result) { call.Return(CountAnswered(result).get()); });
}

void Control::CallClient(const Call& call) const
{
    const Variant arguments = Unwrap(call.Argument<Variant>(2).get());
    link_.Call(
        call.Argument<std::string>(0), call.Argument<std::string>(1), arguments.get(), call.Argument<std::uint32_t>(3),
        [call](const ClientAnswer& answer) {
            const Variant reply = Wrap(answer.reply.get());
            call.Return(g_variant_new("(bsv)", answer.fromClient ? TRUE : FALSE, answer.error.c_str(), reply.get()));
        });
}

void Control::Volume(const Call& call) const
{
    RefuseInReplay(kNeedsHome);
    const auto mac = ReadMac(call);
    if (world_.home.Volumes().Set(mac, 0, call.Argument<std::int32_t>(1)) == kRefused) {
        throw InvalidArguments(fmt::format("no connected speaker has the MAC address {}", Text(mac)));
    }
    AnnounceVolumes(
        link_, world_.clients, world_.home.Volumes(), [call](const PushResult& result) { Answer(call, result); });
}

void Control::Plug(const Call& call) const
{
    RefuseInReplay(kNeedsHome);
    const auto mac = ReadMac(call);
    Speaker* const speaker = world_.home.Speakers().Find(mac);
    if (speaker == nullptr) {
        throw InvalidArguments(fmt::format("no speaker has the MAC address {}", Text(mac)));
    }
    speaker->Plug(call.Argument<bool>(1));
}

std::string Control::State() const
{
    nlohmann::json state = world_.home.ToJson();
    state["clients"] = world_.clients.ToJson();
    state["faults"] = world_.faults.ToJson();
    return state.dump(2);
}

} // namespace kiv::simulator
