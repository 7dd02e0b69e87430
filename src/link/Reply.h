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

// The result of a call on the server, decoded on behalf of a function.
class Reply {
public:
    // The value is the reply, or the preset if nothing was sent; null if the call failed.
    Reply(const Here& here, const char* method, bool succeeded, VariantOwner value)
        : here_(here), method_(method), succeeded_(succeeded), value_(std::move(value))
    {
    }

    explicit operator bool() const { return succeeded_; }

    // Decodes the value. Gives the preset if the value is of another type, which is logged, or missing.
    int Int(int preset) const;
    bool Bool(bool preset) const;
    // Null if there is none. The text is the reply's.
    const char* String() const;

private:
    friend class ByteReply;
    bool CheckValue(const char* type) const { return value_ && CheckType(here_, method_, value_.get(), type); }

    Here here_;
    const char* method_;
    bool succeeded_;
    VariantOwner value_;
};

// A reply that holds a byte array. A value of another type is logged when the reply comes; functions tell in their own
// way what is missing in it.
class ByteReply {
public:
    explicit ByteReply(Reply reply);

    explicit operator bool() const { return static_cast<bool>(reply_); }
    bool HasValue() const { return reply_.value_ != nullptr; }
    // Whether the value is a tuple with a first member.
    bool HasMember() const { return member_ != nullptr; }
    // The bytes are the reply's. Null if the first member is not a byte array, or an empty one.
    Bytes Array() const { return bytes_; }

    // Logs why there is no member to read, and gives the result that a query then returns; nothing if there is one.
    std::optional<int> ResultWithoutMember(const Here& here) const;

private:
    Reply reply_;
    VariantOwner member_;
    Bytes bytes_;
};

} // namespace kiv::link
