#pragma once

#include "link/Bytes.h"
#include "link/Log.h"
#include "link/Owners.h"

#include <cstdint>
#include <optional>
#include <utility>

namespace kiv::link {

inline constexpr int kApiFailed = -1;

// What came of a call on the server.
struct Outcome {
    Here here;
    const char* method;
    bool succeeded;
    VariantOwner value; // the reply, or what the place for it held if nothing was sent
};

// A reply that holds a scalar. Functions that read one do not release it.
class Reply {
public:
    explicit Reply(Outcome outcome) : outcome_(std::move(outcome)) {}
    Reply(Reply&&) = default;
    ~Reply();

    explicit operator bool() const { return outcome_.succeeded; }

    // Decoded values; the preset where the reply is of another type, which is logged.
    int Int(int preset) const;
    bool Bool(bool preset) const;
    // Null where there is none; valid as long as the reply.
    const char* String() const;

private:
    bool IsOf(const char* type) const;

    Outcome outcome_;
};

// A reply that holds a byte array, to be taken apart step by step: functions tell in their own way what is missing.
class ByteReply {
public:
    explicit ByteReply(Outcome outcome) : outcome_(std::move(outcome)) {}

    explicit operator bool() const { return outcome_.succeeded; }

    // Whether there is a value, and whether it has a member, which is taken; what there is not is logged.
    bool HasValue() const;
    bool TakeMember();
    // All of it, as most queries do: if there is no member, their result.
    std::optional<int> TakeMemberOrFail();
    // The bytes of the member taken; null where it is no byte array, which is logged, or an empty one.
    Bytes Array() const;

    // For the paths on which a function does not release what it took.
    void LeaveUnreleased();

private:
    Outcome outcome_;
    VariantOwner member_;
};

/*
 * The frame of an exported function, on whose behalf it logs: first Ready(), then one Invoke() or more.
 */
class ApiCall {
public:
    explicit ApiCall(const Here& here) : here_(here) {}

    // Whether calls can be made: the device has network speakers and the server gave this process its id, having been
    // started if need be.
    bool Ready() const;

    // The first half of Ready(): everything up to the first failed attempt to reach the server.
    enum class Attempt { kRefused, kUnreachable, kReady };
    Attempt TryOnce() const;

    // Whether a byte array of this length can be sent at all; if not, says so in the log.
    bool CanSend(std::uint64_t length) const;

    // Calls a server method with an argument tuple, or null for none. A preset stands in the place for the reply until
    // the call is sent.
    Reply Invoke(const char* method, GVariant* input = nullptr, VariantOwner preset = nullptr) const;
    ByteReply InvokeForBytes(const char* method, GVariant* input, VariantOwner preset) const;

private:
    bool GetProxy(bool reuse, bool noOwnerCheck) const;
    Outcome Call(const char* method, GVariant* input, VariantOwner preset) const;

    const Here here_;
};

// The argument tuple of a byte payload, "(ay)".
GVariant* BytesTuple(const Payload& payload);

// The preset of a reply that holds a byte array: an empty one.
VariantOwner NoBytes();

} // namespace kiv::link
