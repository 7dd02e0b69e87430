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

// A reply that holds a scalar. Such replies stay unreleased.
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
    // Takes the member as most queries do. If there is none, logs why, and gives the result that the query then has.
    std::optional<int> FailureToTake();
    // The bytes of the member taken; null where it is no byte array, which is logged, or an empty one.
    Bytes Array() const;

    // For the paths on which a function does not release it.
    void LeaveUnreleased();

private:
    Outcome outcome_;
    VariantOwner member_;
};

/*
 * The frame of an exported function, on whose behalf it logs: first Ready(), then calls on the server.
 */
class ApiCall {
public:
    explicit ApiCall(const Here& here) : here_(here) {}

    // Whether calls can be made: the device has network speakers and the server gave this process its id, having been
    // started if need be.
    bool Ready() const;

    // The first half of Ready(): everything up to the end of the first attempt to reach the server.
    enum class Attempt { kRefused, kUnreachable, kReady };
    Attempt TryOnce() const;

    // Whether a byte array of this length can be sent at all; if not, says so in the log.
    bool CanSend(std::uint64_t length) const;

    // Calls a server method with an argument tuple, or null for none. A preset stands in the place for the reply until
    // the call is sent; those pass one who report that it cannot be made.
    Reply Invoke(const char* method, GVariant* input = nullptr, VariantOwner preset = nullptr) const;
    ByteReply InvokeForBytes(const char* method, GVariant* input, VariantOwner preset) const;

    // The server's answer where it is an int. A failed call is logged, and gives -1.
    int AnswerOrMinusOne(const char* method, GVariant* input = nullptr) const;
    // The same with other lines in the log, of which one is for the answer. A failed call gives 0.
    int AnswerOrZero(const char* method, GVariant* input) const;

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
