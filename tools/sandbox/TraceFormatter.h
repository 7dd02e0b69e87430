#pragma once

#include "tools/sandbox/OpenCalls.h"

#include <optional>
#include <string>
#include <vector>

namespace kiv::sandbox {

// Describes the messages of a bus one after the other, with the names and calls that it has seen before: "client.tv_7
// -> networkspeaker.server StopNetworkSpeaker(0)" and "client.tv_7 <- networkspeaker.server returns (0)
// [StopNetworkSpeaker]".
class TraceFormatter {
public:
    // Messages by which connections find the bus and each other: Hello, match rules, and changes of names.
    enum class Housekeeping { kHidden, kShown };

    explicit TraceFormatter(Housekeeping housekeeping) : housekeeping_(housekeeping) {}

    // Describes a message. Must get every message, in the order of the bus. Returns nothing for one that is hidden.
    std::optional<std::string> Format(const Message& message);

private:
    struct Member {
        std::string owner; // the bus name under which it was called, or that sent it
        std::string name;  // of the method or signal
    };
    struct OwnedName {
        std::string name;
        std::string owner;
    };

    void FollowNames(const Message& message);
    // Returns the method or signal of the message. Empty for the answer to a call that was sent before the first
    // message.
    Member FollowCalls(const Message& message);
    std::string DisplayName(const std::string& busName) const;
    std::string Shorten(const std::string& wellKnownName) const;

    Housekeeping housekeeping_;
    std::vector<OwnedName> ownedNames_; // in the order of acquisition
    OpenCalls<Member> openCalls_;
};

} // namespace kiv::sandbox
