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

bool Reply::Bool(bool preset) const
{
    return CheckValue("(b)") ? g_variant_get_boolean(Member(value_.get()).get()) != FALSE : preset;
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
        gsize length = 0;
        const auto* data = static_cast<const unsigned char*>(g_variant_get_fixed_array(member_.get(), &length, 1));
        bytes_ = {data, length};
    }
}

std::optional<int> ByteReply::ResultWithoutMember(const Here& here) const
{
    if (!*this) {
        KIV_LOG_AT(here, kLogError, "[%s] MethodCall Error", kApiTag);
    }
    if (!HasValue()) {
        KIV_LOG_AT(here, kLogError, "param_out is NULL");
    } else if (*this && !HasMember()) {
        KIV_LOG_AT(here, kLogError, "pTuple is NULL");
    }
    if (!*this) {
        return kApiFailed;
    }
    return HasMember() ? std::nullopt : std::optional(0);
}

} // namespace kiv::link
