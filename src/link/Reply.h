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

// Returns the bytes of a byte array, which owns them. The pointer is null if there are none.
inline Bytes BytesIn(GVariant* array)
{
    gsize length = 0;
    const auto* data = static_cast<const unsigned char*>(g_variant_get_fixed_array(array, &length, 1));
    return {data, length};
}

// The result of a call on the server. Decodes the reply, and logs in the name of the function at here.
class Reply {
public:
    // The value is the reply, the preset if nothing was sent, or null if the call failed.
    Reply(const Here& here, const char* method, bool succeeded, VariantOwner value)
        : here_(here), method_(method), succeeded_(succeeded), value_(std::move(value))
    {
    }

    explicit operator bool() const { return succeeded_; }

    // These decode the value. Another type is logged, and counts as a missing value.
    // Returns the preset if there is no number.
    int Int(int preset) const;
    // Returns false if there is no bool: only the server's own word is a yes.
    bool Bool() const;
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

// A reply that holds a byte array. The constructor logs a value of another type. Its users log what the reply lacks,
// some in their own words.
class ByteReply {
public:
    explicit ByteReply(Reply reply);

    explicit operator bool() const { return static_cast<bool>(reply_); }
    // Returns whether the value is a tuple with a first member.
    bool HasMember() const { return member_ != nullptr; }
    // Returns the bytes, which the reply owns. The pointer is null if the first member is not a byte array, or is an
    // empty one.
    Bytes Array() const { return bytes_; }

    // If there is no member to read, logs why, and returns the result of the query: kApiFailed for a failed call, and 0
    // for an answer without a value, which reports nothing. Otherwise returns nothing.
    std::optional<int> ResultWithoutMember() const;

    // Returns whether there are bytes. Logs that there are none.
    bool HasBytes() const;

private:
    Reply reply_;
    VariantOwner member_;
    Bytes bytes_;
};

} // namespace kiv::link
