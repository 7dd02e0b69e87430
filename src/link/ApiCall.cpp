#include "link/ApiCall.h"

#include "link/BusClient.h"
#include "link/ClientEndpoint.h"

#include <cinttypes>
#include <utility>

namespace kiv::link {

namespace {

// D-Bus allows no longer array.
constexpr std::uint64_t kMaxArrayLength = std::uint64_t{64} * 1024 * 1024;

} // namespace

Reply::~Reply()
{
    if (outcome_.value) {
        KeepUnreleased(std::move(outcome_.value));
    }
}

bool Reply::IsOf(const char* type) const
{
    return outcome_.value && IsOfType(outcome_.here, outcome_.method, outcome_.value.get(), type);
}

int Reply::Int(int preset) const
{
    return IsOf("(i)") ? g_variant_get_int32(Member(outcome_.value.get()).get()) : preset;
}

bool Reply::Bool(bool preset) const
{
    return IsOf("(b)") ? g_variant_get_boolean(Member(outcome_.value.get()).get()) != FALSE : preset;
}

const char* Reply::String() const
{
    return IsOf("(s)") ? g_variant_get_string(Member(outcome_.value.get()).get(), nullptr) : nullptr;
}

bool ByteReply::HasValue() const
{
    if (!outcome_.value) {
        KIV_LOG_AT(outcome_.here, kLogError, "param_out is NULL");
    }
    return outcome_.value != nullptr;
}

bool ByteReply::TakeMember()
{
    GVariant* value = outcome_.value.get();
    if (value != nullptr && g_variant_n_children(value) != 0) {
        member_ = Member(value);
        return true;
    }
    if (value != nullptr) {
        IsOfType(outcome_.here, outcome_.method, value, "(ay)"); // says that it is not
    }
    KIV_LOG_AT(outcome_.here, kLogError, "pTuple is NULL");
    return false;
}

std::optional<int> ByteReply::FailureToTake()
{
    if (!*this) {
        KIV_LOG_AT(outcome_.here, kLogError, "[%s] MethodCall Error", kApiTag);
        HasValue();
        return kApiFailed;
    }
    if (!HasValue() || !TakeMember()) {
        return 0;
    }
    return std::nullopt;
}

Bytes ByteReply::Array() const
{
    if (!IsOfType(outcome_.here, outcome_.method, member_.get(), "ay")) {
        return {};
    }
    gsize length = 0;
    const auto* data = static_cast<const unsigned char*>(g_variant_get_fixed_array(member_.get(), &length, 1));
    return {data, length};
}

void ByteReply::LeaveUnreleased()
{
    KeepUnreleased(std::move(outcome_.value));
}

bool ApiCall::GetProxy(bool reuse, bool noOwnerCheck) const
{
    return ns_proxy.GetProxy(kClientXml, kClientVTable, reuse, noOwnerCheck);
}

ApiCall::Attempt ApiCall::TryOnce() const
{
    if (GetWhetherKivDisabled()) {
        KIV_LOG_AT(here_, kLogError, "[%s] GetWhetherKivDisabled failed", kApiTag);
        return Attempt::kRefused;
    }
    KIV_LOG_AT(here_, kLogInfo, ">>> API Start ");
    if (!GetProxy(false, false)) {
        KIV_LOG_AT(here_, kLogError, "!!! ERROR ns_proxy.GetProxy() return error, request launch kiv-service");
        return Attempt::kUnreachable;
    }
    return Attempt::kReady;
}

bool ApiCall::Ready() const
{
    const Attempt first = TryOnce();
    if (first != Attempt::kUnreachable) {
        return first == Attempt::kReady;
    }
    // Without the owner check, the call has the bus start the server.
    GetProxy(true, true);
    if (!GetProxy(false, false)) {
        KIV_LOG_AT(here_, kLogError, "!!! ERROR ns_proxy.GetProxy() return error, return");
        return false;
    }
    return true;
}

bool ApiCall::CanSend(std::uint64_t length) const
{
    if (length > kMaxArrayLength) {
        KIV_LOG_AT(here_, kLogError, "[%s] %" PRIu64 " bytes are more than the bus carries", kApiTag, length);
        return false;
    }
    return true;
}

Outcome ApiCall::Call(const char* method, GVariant* input, VariantOwner preset) const
{
    const VariantOwner argument = Sink(input);
    GVariant* output = preset.get();
    const bool succeeded = ns_proxy.MethodCall(method, argument.get(), &output, false);
    const bool replaced = output != preset.get();
    return {here_, method, succeeded, replaced ? VariantOwner(output) : std::move(preset)};
}

Reply ApiCall::Invoke(const char* method, GVariant* input, VariantOwner preset) const
{
    return Reply(Call(method, input, std::move(preset)));
}

ByteReply ApiCall::InvokeForBytes(const char* method, GVariant* input, VariantOwner preset) const
{
    return ByteReply(Call(method, input, std::move(preset)));
}

int ApiCall::AnswerOrMinusOne(const char* method, GVariant* input) const
{
    const Reply reply = Invoke(method, input);
    if (!reply) {
        KIV_LOG_AT(here_, kLogError, "[%s] MethodCall Error", kApiTag);
    }
    return reply.Int(kApiFailed);
}

int ApiCall::AnswerOrZero(const char* method, GVariant* input) const
{
    const Reply reply = Invoke(method, input);
    if (!reply) {
        KIV_LOG_AT(here_, kLogError, "[%s] MethodCall(%s) Error", kApiTag, method);
        return 0;
    }
    const int result = reply.Int(kApiFailed);
    KIV_LOG_AT(here_, kLogInfo, "[%s] result[%d]", kApiTag, result);
    return result;
}

GVariant* BytesTuple(const Payload& payload)
{
    return g_variant_new("(@ay)", g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, payload.data(), payload.size(), 1));
}

VariantOwner NoBytes()
{
    return Sink(g_variant_new("(ay)", nullptr));
}

} // namespace kiv::link
