#include "simulator/Recording.h"

#include "simulator/JsonKeys.h"
#include "simulator/ShortText.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace kiv::simulator {

namespace {

std::int64_t ReadNumber(const JsonNode& node)
{
    return node.Integer(0, INT32_MAX);
}

const Keys<RecordedLine>& LineKeys()
{
    static const Keys<RecordedLine> kKeys = {
        {"ms", Into(&RecordedLine::ms, ReadNumber)},
        {"call", Into(&RecordedLine::call, ReadNumber)},
        {"event", Into(&RecordedLine::event, ReadNumber)},
        {"answer", Into(&RecordedLine::answer, ReadNumber)},
        {"method", Into(&RecordedLine::method, &JsonNode::Text)},
        {"arguments", Into(&RecordedLine::arguments, &JsonNode::Text)},
        {"client", Into(&RecordedLine::client, &JsonNode::Text)},
        {"values", Into(&RecordedLine::values, &JsonNode::Text)},
        {"error", Into(&RecordedLine::error, &JsonNode::Text)},
        {"message", Into(&RecordedLine::message, &JsonNode::Text)},
    };
    return kKeys;
}

// Returns whether a line is JSON with at least one key of a recording.
bool IsLike(const std::string& text)
{
    const auto parsed = nlohmann::json::parse(text, nullptr, false);
    return parsed.is_object() &&
           std::ranges::any_of(LineKeys(), [&parsed](const auto& key) { return parsed.contains(key.first); });
}

} // namespace

nlohmann::ordered_json LineObject(const RecordedLine& line)
{
    nlohmann::ordered_json json = {{"ms", line.ms}};
    if (line.answer) {
        json["answer"] = *line.answer;
        if (line.error.empty()) {
            json["values"] = line.values;
        } else {
            json["error"] = line.error;
            json["message"] = line.message;
        }
        return json;
    }
    if (line.event) {
        json["event"] = *line.event;
        json["client"] = line.client;
    } else {
        json["call"] = line.call.value_or(0);
    }
    json["method"] = line.method;
    json["arguments"] = line.arguments;
    return json;
}

std::string WriteLine(const RecordedLine& line)
{
    return LineObject(line).dump();
}

RecordedLine ReadLine(const std::string& name, const std::string& text, int number)
{
    // A file whose first line has no such key is something else, such as a scenario.
    if (number == 1 && !IsLike(text)) {
        throw FileError(fmt::format(
            "{}:1: must be a recording, a JSON object in each line, as --record writes it, got {}", name,
            Beginning(text, kMostShown)));
    }
    const JsonNode node = JsonNode::Parse(name, text, number);
    RecordedLine line = Read(node, LineKeys(), {"ms"});
    if (line.call.has_value() + line.event.has_value() + line.answer.has_value() != 1) {
        node.FailExpected(R"(a line with one of "call", "event" and "answer")");
    }
    if (line.answer ? line.values.empty() == line.error.empty() : line.method.empty() || line.arguments.empty()) {
        node.FailExpected(R"(a call or an event with "method" and "arguments", or an answer with "values" or "error")");
    }
    return line;
}

bool IsRecording(const std::string& text)
{
    try {
        ReadLine("", text.substr(0, text.find('\n')), 1);
        return true;
    } catch (const FileError&) {
        return false;
    }
}

} // namespace kiv::simulator
