#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace kiv::simulator {

// A line of a recording: a call of the server, an event, which is a call of a client, or the answer to one of these.
// Arguments and values are tuples as GVariant text.
struct RecordedLine {
    // Milliseconds since the recording began.
    std::int64_t ms = 0;
    // One of these three is set. It is the number by which an answer refers to its call or event.
    std::optional<std::int64_t> call;
    std::optional<std::int64_t> event;
    std::optional<std::int64_t> answer;
    // Set for calls and events.
    std::string method;
    std::string arguments;
    // The id of the client that an event is for.
    std::string client;
    // Set for answers. The values are empty if there is an error.
    std::string values;
    std::string error;
    std::string message;
};

// Returns a line as a JSON object, with its keys in the order in which they are written.
nlohmann::ordered_json LineObject(const RecordedLine& line);
// Returns the text of a line, without a newline.
std::string WriteLine(const RecordedLine& line);
// Reads a line. Throws FileError, with name, number and reason, if it is not a line of a recording.
RecordedLine ReadLine(const std::string& name, const std::string& text, int number);
// Returns whether the text of a file begins with a line of a recording.
bool IsRecording(const std::string& text);

} // namespace kiv::simulator
