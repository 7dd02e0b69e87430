#include "link/Reply.h"

#include <cstring>

namespace kiv::link {

bool CheckType(const Here& here, const char* method, GVariant* value, const char* expected)
{
    const char* const found = g_variant_get_type_string(value);
    if (std::strcmp(found, expected) == 0) {
        return true;
    }
    KIV_LOG_AT(here, kLogError, "[%s] method [%s], type [%s] expected, [%s] found", kApiTag, method, expected, found);
    return false;
}

int Reply::Int(int preset) const
{
    return CheckValue("(i)") ? g_variant_get_int32(Member(value_.get()).get()) : preset;
}

bool Reply::Bool() const
{
    return CheckValue("(b)") && g_variant_get_boolean(Member(value_.get()).get()) != FALSE;
}

const char* Reply::String() const
{
    return CheckValue("(s)") ? g_variant_get_string(Member(value_.get()).get(), nullptr) : nullptr;
}

ByteReply::ByteReply(Reply reply) : reply_(std::move(reply))
{
    GVariant* const value = reply_.value_.get();
    if (value == nullptr) {
        return;
    }
    if (g_variant_n_children(value) == 0) {
        CheckType(reply_.here_, reply_.method_, value, "(ay)");
        return;
    }
    member_ = Member(value);
    if (CheckType(reply_.here_, reply_.method_, member_.get(), "ay")) {
        bytes_ = BytesIn(member_.get());
    }
}

std::optional<int> ByteReply::ResultWithoutMember() const
{
    if (!*this) {
        KIV_LOG_AT(reply_.here_, kLogError, "[%s] MethodCall Error", kApiTag);
    }
    if (!reply_.value_) {
        KIV_LOG_AT(reply_.here_, kLogError, "param_out is NULL");
    } else if (*this && !HasMember()) {
        KIV_LOG_AT(reply_.here_, kLogError, "pTuple is NULL");
    }
    if (!*this) {
        return kApiFailed;
    }
    return HasMember() ? std::nullopt : std::optional(0);
}

bool ByteReply::HasBytes() const
{
    if (bytes_.data() == nullptr) {
        KIV_LOG_AT(reply_.here_, kLogError, "[%s] pByteArray is NULL", kApiTag);
    }
    return bytes_.data() != nullptr;
}

} // namespace kiv::link
