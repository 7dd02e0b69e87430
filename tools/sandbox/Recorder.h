#pragma once

#include "OpenCalls.h"

#include <chrono>
#include <cstdint>
#include <fstream>
#include <string>

namespace kiv::simulator {
struct RecordedLine;
}

namespace kiv::sandbox {

/**
 * Writes down what library and server say to each other, a line each: calls, events, and the answers to both. Wants
 * every message, in the order of the bus. Throws FileError for a file that cannot be written.
 */
class Recorder {
public:
    explicit Recorder(const std::string& file);

    void Add(const Message& message);
    /// Tells whether all has been written.
    void Finish();

private:
    void Write(simulator::RecordedLine line);

    std::string name_;
    std::ofstream file_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::int64_t lastNumber_ = 0;
    OpenCalls<std::int64_t> open_;
};

} // namespace kiv::sandbox
