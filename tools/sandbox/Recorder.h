#pragma once

#include "simulator/Recording.h"
#include "tools/sandbox/OpenCalls.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace kiv::sandbox {

// Makes the lines of a recording from the messages on a bus. Must get every message, in the order of the bus.
class RecordedMessages {
public:
    // Returns the line, without its time, of an event, of a call that is to be recorded, and of the answer to either.
    // Returns nothing for other messages. The caller says whether a message is such a call.
    std::optional<simulator::RecordedLine> Line(const Message& message, bool isCall);
    // Returns whether there was neither a call nor an event.
    bool IsEmpty() const { return lastNumber_ == 0; }

private:
    std::int64_t lastNumber_ = 0;
    OpenCalls<std::int64_t> open_;
};

// Records the messages between the library and the server, one in each line: calls, events, and the answers to both.
// Must get every message, in the order of the bus. Throws FileError if the file cannot be written.
//
// The lines go to a file in the same folder, "FILE.part-" and six characters, which Finish() renames. Without Finish(),
// the given file stays as it was, and so does the partial file, unless it is empty.
class Recorder {
public:
    explicit Recorder(const std::string& file);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    void Add(const Message& message);
    // Renames the recording to its file. A file that is not empty stays as it was if the run failed, and the partial
    // file then keeps its name, or if no call was made. Returns a line for stderr that says so, or that the recording
    // is empty, or nothing. Throws std::runtime_error if the recording is not complete.
    std::string Finish(bool hasFailed);

private:
    std::string name_;
    std::filesystem::path target_;
    std::filesystem::path part_; // empty if no file is replaced
    std::ofstream file_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    RecordedMessages messages_;
};

} // namespace kiv::sandbox
