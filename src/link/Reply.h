#pragma once

#include "link/Bytes.h"
#include "link/Log.h"
#include "link/Owners.h"

#include <optional>
#include <utility>

namespace kiv::link {

inline constexpr int kApiFailed = -1;

// Compares the type of a method's reply, or of its arguments, with the type that can be decoded. Logs a difference.
bool CheckType(const Here& here, const char* method, GVariant* value, const char* expected);

// The result of a call on the server. Decodes the reply, and logs in the name of the function at here.
class Reply {
public:
    // The value is the reply, the preset if nothing was sent, or null if the call failed.
    Reply(const Here& here, const char* method, bool succeeded, VariantOwner value)
        : here_(here), method_(method), succeeded_(succeeded), value_(std::move(value))
    {
    }

    explicit operator bool() const { return succeeded_; }

    // Decodes the value. Returns the preset if the value is missing or of another type. Another type is logged.
    int Int(int preset) const;
    bool Bool(bool preset) const;
    // Returns null if there is no text. The reply owns the text.
    const char* String() const;

private:
    friend class ByteReply;
    bool CheckValue(const char* type) const { return value_ && CheckType(here_, method_, value_.get(), type); }

    Here here_;
    const char* method_;
    bool succeeded_;
    VariantOwner value_;
};

// A reply that holds a byte array. The constructor logs a value of another type. The functions log what the reply
// lacks, each in its own words.
class ByteReply {
public:
    explicit ByteReply(Reply reply);

    explicit operator bool() const { return static_cast<bool>(reply_); }
    bool HasValue() const { return reply_.value_ != nullptr; }
    // Returns whether the value is a tuple with a first member.
    bool HasMember() const { return member_ != nullptr; }
    // Returns the bytes, which the reply owns. The pointer is null if the first member is not a byte array, or is an
    // empty one.
    Bytes Array() const { return bytes_; }

    // If there is no member to read, logs why, and returns the result of the query. Otherwise returns nothing.
    std::optional<int> ResultWithoutMember(const Here& here) const;

private:
    Reply reply_;
    VariantOwner member_;
    Bytes bytes_;
};

} // namespace kiv::link
