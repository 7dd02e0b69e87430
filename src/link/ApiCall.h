#pragma once

#include "link/Log.h"
#include "link/Owners.h"

namespace kiv::link {

inline constexpr int kApiFailed = -1;

// The outcome of a call on the server: whether a reply came, and what can be decoded of it.
class Reply {
public:
    Reply(const Here& here, const char* method, bool succeeded, GVariant* value)
        : here_(here), method_(method), succeeded_(succeeded), value_(value)
    {
    }
    Reply(Reply&&) = default;
    ~Reply();

    explicit operator bool() const { return succeeded_; }

    // Decoded values; the preset where the reply is of another type, which is logged.
    int Int(int preset) const;
    bool Bool(bool preset) const;
    // Null where there is none; valid as long as the reply.
    const char* String() const;

private:
    bool IsOf(const char* type) const;

    Here here_;
    const char* method_;
    bool succeeded_;
    VariantOwner value_;
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
    bool CanSend(std::size_t length) const;

    // Calls a server method with an argument tuple, or null for none.
    Reply Invoke(const char* method, GVariant* input = nullptr) const;

private:
    bool GetProxy(bool reuse, bool noOwnerCheck) const;

    const Here here_;
};

// The argument tuple of a byte payload, "(ay)".
GVariant* BytesTuple(const void* data, std::size_t length);

} // namespace kiv::link
