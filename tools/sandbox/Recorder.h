#pragma once

#include "OpenCalls.h"
#include "simulator/Recording.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace kiv::sandbox {

/// Makes lines of a recording of the messages on a bus. Wants every message, in the order of the bus.
class RecordedMessages {
public:
    /// Returns the line, without its time, of an event, of a message that the caller says is a call to be recorded, and
    /// of the answer to either. Returns nothing for other messages.
    std::optional<simulator::RecordedLine> Line(const Message& message, bool isCall);

private:
    std::int64_t lastNumber_ = 0;
    OpenCalls<std::int64_t> open_;
};

/**
 * Writes down what library and server say to each other, a line each: calls, events, and the answers to both. Wants
 * every message, in the order of the bus. Throws FileError for a file that cannot be written.
 *
 * The lines go to a file beside the given one, "FILE.part-" and six characters, until Finish() gives it its name. A
 * recorder that does not come so far leaves the given file as it was, and the file beside it unless that is empty.
 */
class Recorder {
public:
    explicit Recorder(const std::string& file);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    void Add(const Message& message);
    /// Puts the recording in its place; that of a run that failed stays beside an older one. Returns a line for stderr
    /// that tells so, or nothing. Throws std::runtime_error if not all of it could be written.
    std::string Finish(bool hasFailed);

private:
    std::string name_;
    std::filesystem::path target_;
    std::filesystem::path part_; // empty where no file is replaced
    std::ofstream file_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    RecordedMessages messages_;
};

} // namespace kiv::sandbox
