#pragma once

#include "simulator/Faults.h"
#include "simulator/Glib.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
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

/** A call of the server and its answer. */
struct RecordedExchange {
    /** Number of the call's line in the recording. */
    int line;
    std::int64_t calledMs;
    std::string method;
    Variant arguments;
    RecordedAnswer answer;
    /** The replay has come to it. */
    bool isMade = false;
};

/** Answers from a recording: the same call gets what it got then, the second such call what the second got. */
class Replay {
public:
    /** Throws FileError, with line and reason, for what is no recording. The name stands for the text. */
    Replay(const std::string& name, const std::string& text);

    const std::string& Name() const { return name_; }

    /** Returns nothing for a call that was not recorded, or not so often. */
    std::optional<RecordedAnswer> Next(const std::string& method, GVariant* arguments);
    /** Says why there is nothing for such a call. */
    std::string WhyNot(const std::string& method, GVariant* arguments) const;

    /**
     * The calls that nobody has made, in their order. Of the calls about the caller's process, those of the same method
     * count as one, which is made if any of them is: how often they are made is chance. The question for the client id,
     * which the library asks before each call, is left out.
     */
    std::vector<RecordedExchange> Unmade() const;

private:
    using Call = std::pair<std::string, std::string>;
    /** Indices of the exchanges that begin with the same call. */
    struct Exchanges {
        std::vector<std::size_t> inOrder;
        std::size_t next = 0;
    };

    const RecordedExchange* Nearest(const std::string& method, GVariant* arguments) const;

    std::string name_;
    std::vector<RecordedExchange> exchanges_;
    std::map<Call, Exchanges> byCall_;
};

} // namespace kiv::simulator
