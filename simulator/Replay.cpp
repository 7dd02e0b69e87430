#include "simulator/Replay.h"

#include "simulator/ClientLink.h"
#include "simulator/JsonNode.h"
#include "simulator/Recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <utility>

namespace kiv::simulator {

namespace {

/** Their argument is the caller's process id, which is another each time, and how often they are called is chance. */
bool IsAboutProcess(const std::string& method)
{
    static const std::set<std::string> kMethods = {
        "check_dbus_connection", "SubscribeNamServiceCallback", "UnsubscribeNamServiceCallback"};
    return kMethods.contains(method);
}

std::string Print(GVariant* value)
{
    const std::unique_ptr<char, decltype(&g_free)> text(g_variant_print(value, TRUE), g_free);
    return text.get();
}

/** Puts the lines of a recording together. */
class RecordingReader {
public:
    struct Exchange {
        std::string method;
        std::string arguments;
        std::int64_t calledMs;
        RecordedAnswer answer;
    };

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

    std::vector<Exchange> Take() { return std::move(exchanges_); }

private:
    void AddCall(const RecordedLine& line)
    {
        if (!calls_.emplace(*line.call, exchanges_.size()).second) {
            Fail(fmt::format("there was a call {} before", *line.call));
        }
        RecordedAnswer silence;
        silence.fault.silent = true;
        exchanges_.push_back({line.method, Print(Tuple(line.arguments).get()), line.ms, silence});
    }

    void AddAnswer(const RecordedLine& line)
    {
        const auto call = calls_.find(*line.answer);
        if (call == calls_.end()) {
            Fail(fmt::format("there was no call {}", *line.answer));
        }
        Exchange& exchange = exchanges_[call->second];
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
            Fail("an event must follow an answer, got one before any");
        }
        if (!ClientLink::IsUsable(line.client) || g_dbus_is_member_name(line.method.c_str()) == FALSE) {
            Fail(fmt::format(
                "an event must be for a client and a method that D-Bus can have, got '{}' and '{}'", line.client,
                line.method));
        }
        const std::chrono::milliseconds delay(std::max<std::int64_t>(line.ms - lastAnsweredMs_, 0));
        exchanges_[*lastAnswered_].answer.events.push_back({delay, line.client, line.method, Tuple(line.arguments)});
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
    std::vector<Exchange> exchanges_;
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
    for (const RecordingReader::Exchange& exchange : reader.Take()) {
        const std::string arguments = IsAboutProcess(exchange.method) ? "" : exchange.arguments;
        answers_[{exchange.method, arguments}].inOrder.push_back(exchange.answer);
    }
}

RecordedAnswer Replay::Next(const std::string& method, GVariant* arguments)
{
    const bool isAboutProcess = IsAboutProcess(method);
    const Call call = {method, isAboutProcess ? "" : Print(arguments)};
    const auto found = answers_.find(call);
    if (found != answers_.end()) {
        Answers& answers = found->second;
        if (answers.next < answers.inOrder.size()) {
            return answers.inOrder[answers.next++];
        }
        if (isAboutProcess) {
            RecordedAnswer last = answers.inOrder.back();
            last.events.clear();
            return last;
        }
    }
    RecordedAnswer answer;
    answer.fault.error = kNotRecorded;
    answer.fault.message = WhyNot(call);
    std::fputs(fmt::format("kiv-simulator: {}\n", answer.fault.message).c_str(), stderr);
    return answer;
}

std::string Replay::WhyNot(const Call& call) const
{
    const auto& [method, arguments] = call;
    const auto found = answers_.find(call);
    if (found != answers_.end()) {
        const std::size_t count = found->second.inOrder.size();
        const std::string times = count == 1 ? "once" : fmt::format("{} times", count);
        return fmt::format("{} has {}{} only {}", name_, method, arguments, times);
    }
    const auto sameMethod = answers_.lower_bound({method, ""});
    if (sameMethod == answers_.end() || sameMethod->first.first != method) {
        return fmt::format("{} has no call of {}", name_, method);
    }
    return fmt::format("{} has no {}{}, but {}{}", name_, method, arguments, method, sameMethod->first.second);
}

} // namespace kiv::simulator
