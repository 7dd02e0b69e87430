#pragma once

#include "simulator/Faults.h"
#include "simulator/Glib.h"

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace kiv::simulator {

/** The D-Bus error that answers a call which is not in the recording, or not so often. */
inline constexpr char kNotRecorded[] = "org.lumra.tv.networkspeaker.simulator.Error.NotRecorded";

/** A call of a client that followed an answer. */
struct RecordedEvent {
    std::chrono::milliseconds delay;
    std::string client;
    std::string method;
    Variant arguments;
};

struct RecordedAnswer {
    /** The answer, put as a fault: an error, a reply, silence, and how long it took. */
    Fault fault;
    std::vector<RecordedEvent> events;
};

/** Answers from a recording: the same call gets what it got then, the second such call what the second got. */
class Replay {
public:
    /** Throws FileError, with line and reason, for what is no recording. The name stands for the text. */
    Replay(const std::string& name, const std::string& text);

    /** A call that was not recorded, or not so often, gets an error, which goes to stderr as well. */
    RecordedAnswer Next(const std::string& method, GVariant* arguments);

private:
    struct Answers {
        std::vector<RecordedAnswer> inOrder;
        std::size_t next = 0;
    };
    using Call = std::pair<std::string, std::string>;

    std::string WhyNot(const Call& call) const;

    std::string name_;
    std::map<Call, Answers> answers_;
};

} // namespace kiv::simulator
