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

// The D-Bus error that answers a call that is not in the recording, or not so often.
inline constexpr char kNotRecorded[] = "org.lumra.tv.networkspeaker.simulator.Error.NotRecorded";

// A call of a client that followed an answer.
struct RecordedEvent {
    std::chrono::milliseconds delay;
    std::string client;
    std::string method;
    Variant arguments;
};

struct RecordedAnswer {
    // The answer in the form of a fault: an error, a reply or silence, and the delay.
    Fault fault;
    std::vector<RecordedEvent> events;
};

// A call of the server and its answer.
struct RecordedExchange {
    // The number of the call's line in the recording.
    int line;
    std::int64_t calledMs;
    std::string method;
    Variant arguments;
    RecordedAnswer answer;
    // The replay has used the exchange.
    bool isMade = false;
};

// Answers calls from a recording. The first of several equal calls gets the first answer that was recorded for them,
// the second call the second answer, and so on.
class Replay {
public:
    // Throws FileError, with line and reason, for a text that is not a recording. Messages call the text by the name.
    Replay(const std::string& name, const std::string& text);

    const std::string& Name() const { return name_; }

    // Returns whether such a call was recorded, however often.
    bool Has(const std::string& method, GVariant* arguments) const;
    // Returns nothing for a call that was not recorded, or not so often.
    std::optional<RecordedAnswer> Next(const std::string& method, GVariant* arguments);
    // Returns why there is no answer for such a call.
    std::string WhyNot(const std::string& method, GVariant* arguments) const;

    // Returns the recorded calls that no client has made, in their order. Calls of one method about the caller's
    // process count as one call, because their number depends on chance. The question for the client id is left out,
    // because the library asks it before each call.
    std::vector<RecordedExchange> Unmade() const;

private:
    using Call = std::pair<std::string, std::string>;
    // The indices of the exchanges with equal calls.
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
