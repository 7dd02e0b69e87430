#include "link/ApiCall.h"

#include "link/BusClient.h"
#include "link/ClientEndpoint.h"

#include <utility>

namespace kiv::link {

namespace {

// D-Bus allows no longer array.
constexpr std::size_t kMaxArrayLength = std::size_t{64} * 1024 * 1024;

} // namespace

// Replies of scalars stay unreleased by the functions that read them.
Reply::~Reply()
{
    if (value_) {
        KeepUnreleased(std::move(value_));
    }
}

bool Reply::IsOf(const char* type) const
{
    return value_ && IsOfType(here_, method_, value_.get(), type);
}

int Reply::Int(int preset) const
{
    gint32 value = preset;
    if (IsOf("(i)")) {
        g_variant_get(value_.get(), "(i)", &value);
    }
    return value;
}

bool Reply::Bool(bool preset) const
{
    gboolean value = preset;
    if (IsOf("(b)")) {
        g_variant_get(value_.get(), "(b)", &value);
    }
    return value != FALSE;
}

const char* Reply::String() const
{
    const char* value = nullptr;
    if (IsOf("(s)")) {
        g_variant_get(value_.get(), "(&s)", &value);
    }
    return value;
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

bool ApiCall::CanSend(std::size_t length) const
{
    if (length > kMaxArrayLength) {
        KIV_LOG_AT(here_, kLogError, "[%s] %zu bytes are more than the bus carries", kApiTag, length);
        return false;
    }
    return true;
}

Reply ApiCall::Invoke(const char* method, GVariant* input) const
{
    const VariantOwner argument = Sink(input);
    GVariant* output = nullptr;
    const bool succeeded = ns_proxy.MethodCall(method, argument.get(), &output, false);
    return {here_, method, succeeded, output};
}

GVariant* BytesTuple(const void* data, std::size_t length)
{
    return g_variant_new("(@ay)", g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data, length, 1));
}

} // namespace kiv::link
