#include "simulator/Replay.h"

#include "simulator/BusObject.h"
#include "simulator/CallDifference.h"
#include "simulator/ClientLink.h"
#include "simulator/Interfaces.h"
#include "simulator/JsonNode.h"
#include "simulator/Recording.h"
#include "simulator/ShortText.h"
#include "tools/Nearest.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>
#include <sstream>
#include <utility>

namespace kiv::simulator {

namespace {

constexpr char kIdMethod[] = "check_dbus_connection";

// Returns whether a method is about the calling process. Its argument is the process id, which differs from run to run,
// and the number of its calls depends on chance.
bool IsAboutProcess(const std::string& method)
{
    static const std::set<std::string> kMethods = {
        kIdMethod, "SubscribeNamServiceCallback", "UnsubscribeNamServiceCallback"};
    return kMethods.contains(method);
}

// Returns a key that is equal for calls that get the same answers.
std::pair<std::string, std::string> CallOf(const std::string& method, GVariant* arguments)
{
    return {method, IsAboutProcess(method) ? "" : TakeText(g_variant_print(arguments, TRUE))};
}

// Joins the lines of a recording to exchanges.
class RecordingReader {
public:
    explicit RecordingReader(std::string name) : name_(std::move(name)) {}

    void Add(const std::string& text, int number)
    {
        const RecordedLine line = ReadLine(name_, text, number);
        number_ = number;
        if (line.call) {
            AddCall(line);
        } else if (line.event) {
            AddEvent(line);
        } else if (!events_.contains(*line.answer)) {
            AddAnswer(line);
        }
    }

    std::vector<RecordedExchange> Take()
    {
        RefuseMistypedMethods();
        RefuseWrongTypes();
        return std::move(exchanges_);
    }

private:
    void AddCall(const RecordedLine& line)
    {
        if (!calls_.emplace(*line.call, exchanges_.size()).second) {
            Fail(fmt::format("there was a call {} before", *line.call));
        }
        RecordedAnswer silence;
        silence.fault.silent = true;
        exchanges_.push_back({number_, line.ms, line.method, Tuple(line.arguments), silence});
    }

    void AddAnswer(const RecordedLine& line)
    {
        const auto call = calls_.find(*line.answer);
        if (call == calls_.end()) {
            Fail(fmt::format("there was no call {}", *line.answer));
        }
        RecordedExchange& exchange = exchanges_[call->second];
        Fault& fault = exchange.answer.fault;
        fault.silent = false;
        fault.delay = std::chrono::milliseconds(std::max<std::int64_t>(line.ms - exchange.calledMs, 0));
        fault.error = line.error;
        fault.message = line.message;
        fault.reply = line.error.empty() ? Tuple(line.values) : nullptr;
        lastAnswered_ = call->second;
        lastAnsweredMs_ = line.ms;
    }

    void AddEvent(const RecordedLine& line)
    {
        events_.insert(*line.event);
        if (!lastAnswered_) {
            Fail("an event must follow an answer, got an event before the first answer");
        }
        if (!ClientLink::IsUsable(line.client) || g_dbus_is_member_name(line.method.c_str()) == FALSE) {
            Fail(fmt::format(
                R"(an event must be for a client and a method that D-Bus can have, got "{}" and "{}")", line.client,
                line.method));
        }
        const std::chrono::milliseconds delay(std::max<std::int64_t>(line.ms - lastAnsweredMs_, 0));
        exchanges_[*lastAnswered_].answer.events.push_back({delay, line.client, line.method, Tuple(line.arguments)});
    }

    // A call of an unknown method is accepted if the server has answered it as such, or if the name is like no other:
    // it is a call of another server then.
    void RefuseMistypedMethods()
    {
        const std::set<std::string> known = Interface(kServerXml).Methods();
        const std::vector<std::string> names(known.begin(), known.end());
        for (const RecordedExchange& exchange : exchanges_) {
            if (known.contains(exchange.method) ||
                exchange.answer.fault.error == "org.freedesktop.DBus.Error.UnknownMethod") {
                continue;
            }
            number_ = exchange.line;
            if (const std::string meant = DidYouMean(exchange.method, names); !meant.empty()) {
                Fail(fmt::format("/method: the server has no method \"{}\"{}", exchange.method, meant));
            }
        }
    }

    // No call can be equal to a recorded call with arguments of other types. Such a call is accepted if the server has
    // answered it with an error.
    void RefuseWrongTypes()
    {
        const Interface server(kServerXml);
        for (const RecordedExchange& exchange : exchanges_) {
            const std::string type = server.ArgumentsType(exchange.method);
            const std::string given = g_variant_get_type_string(exchange.arguments.get());
            if (type.empty() || given == type || !exchange.answer.fault.error.empty()) {
                continue;
            }
            number_ = exchange.line;
            Fail(fmt::format(
                "/arguments: {} must be called with arguments of the D-Bus type {}, got {}", exchange.method, type,
                given));
        }
    }

    Variant Tuple(const std::string& text) const
    {
        try {
            return Unwrap(Own(g_variant_new_string(text.c_str())).get());
        } catch (const BusError& error) {
            Fail(error.what());
        }
    }

    [[noreturn]] void Fail(const std::string& reason) const
    {
        throw FileError(fmt::format("{}:{}: {}", name_, number_, reason));
    }

    std::string name_;
    int number_ = 0;
    std::vector<RecordedExchange> exchanges_;
    std::map<std::int64_t, std::size_t> calls_;
    std::set<std::int64_t> events_;
    std::optional<std::size_t> lastAnswered_;
    std::int64_t lastAnsweredMs_ = 0;
};

} // namespace

Replay::Replay(const std::string& name, const std::string& text) : name_(name)
{
    RecordingReader reader(name);
    std::istringstream lines(text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        reader.Add(line, ++number);
    }
    exchanges_ = reader.Take();
    for (std::size_t index = 0; index < exchanges_.size(); ++index) {
        const RecordedExchange& exchange = exchanges_[index];
        byCall_[CallOf(exchange.method, exchange.arguments.get())].inOrder.push_back(index);
    }
}

bool Replay::Has(const std::string& method, GVariant* arguments) const
{
    return byCall_.contains(CallOf(method, arguments));
}

std::optional<RecordedAnswer> Replay::Next(const std::string& method, GVariant* arguments)
{
    const auto found = byCall_.find(CallOf(method, arguments));
    if (found == byCall_.end()) {
        return std::nullopt;
    }
    Exchanges& same = found->second;
    if (same.next < same.inOrder.size()) {
        RecordedExchange& exchange = exchanges_[same.inOrder[same.next++]];
        exchange.isMade = true;
        return exchange.answer;
    }
    if (!IsAboutProcess(method)) {
        return std::nullopt;
    }
    RecordedAnswer last = exchanges_[same.inOrder.back()].answer;
    last.events.clear();
    return last;
}

std::string Replay::WhyNot(const std::string& method, GVariant* arguments) const
{
    const auto found = byCall_.find(CallOf(method, arguments));
    if (found != byCall_.end()) {
        const std::size_t count = found->second.inOrder.size();
        const std::string times = count == 1 ? "once" : fmt::format("{} times", count);
        return fmt::format("{} has {}{} only {}", name_, method, ShortText(arguments), times);
    }
    const RecordedExchange* const nearest = Nearest(method, arguments);
    if (nearest == nullptr) {
        return fmt::format("{} has no call of {}", name_, method);
    }
    const CallDifference difference = FirstDifference(method, nearest->arguments.get(), arguments);
    return fmt::format(
        "{} has no such {}: {} must be {} as in line {}, got {}", name_, method, difference.name, difference.first,
        nearest->line, difference.second);
}

std::vector<RecordedExchange> Replay::Unmade() const
{
    std::vector<RecordedExchange> unmade;
    std::set<std::string> leftOut = {kIdMethod};
    for (const RecordedExchange& exchange : exchanges_) {
        if (exchange.isMade && IsAboutProcess(exchange.method)) {
            leftOut.insert(exchange.method);
        }
    }
    for (const RecordedExchange& exchange : exchanges_) {
        if (exchange.isMade || leftOut.contains(exchange.method)) {
            continue;
        }
        unmade.push_back(exchange);
        if (IsAboutProcess(exchange.method)) {
            leftOut.insert(exchange.method);
        }
    }
    return unmade;
}

// Returns the recorded call of the method that is most like this one, or null if there is none. Prefers calls that are
// still to come.
const RecordedExchange* Replay::Nearest(const std::string& method, GVariant* arguments) const
{
    const RecordedExchange* nearest = nullptr;
    std::pair<bool, std::size_t> most;
    for (const RecordedExchange& exchange : exchanges_) {
        if (exchange.method != method) {
            continue;
        }
        const std::pair likeness(!exchange.isMade, CountEqualArguments(exchange.arguments.get(), arguments));
        if (nearest == nullptr || likeness > most) {
            nearest = &exchange;
            most = likeness;
        }
    }
    return nearest;
}

} // namespace kiv::simulator
