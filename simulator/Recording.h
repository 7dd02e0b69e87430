#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kiv::simulator {

/**
 * A line of a recording: a call of the server, an event, which is a call of a client, or the answer to either.
 * Arguments and values are tuples as GVariant text.
 */
struct RecordedLine {
    /** Milliseconds since the recording began. */
    std::int64_t ms = 0;
    /** One of these is the number that answers refer to. */
    std::optional<std::int64_t> call;
    std::optional<std::int64_t> event;
    std::optional<std::int64_t> answer;
    /** Of calls and events. */
    std::string method;
    std::string arguments;
    /** Id of the client that an event is for. */
    std::string client;
    /** Of answers. Empty if there is an error instead. */
    std::string values;
    std::string error;
    std::string message;
};

/** With no newline at the end. */
std::string WriteLine(const RecordedLine& line);
/** Throws FileError, with name, number and reason, for a line that is none. */
RecordedLine ReadLine(const std::string& name, const std::string& text, int number);
/** Tells whether the text of a file begins with a line of a recording. */
bool IsRecording(const std::string& text);

} // namespace kiv::simulator
