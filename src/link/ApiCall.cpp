#include "link/ApiCall.h"

#include "link/BusClient.h"
#include "link/ClientEndpoint.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace kiv::link {

bool ApiCall::GetProxy(bool reuse, bool noOwnerCheck)
{
    connection_ = kiv::link::GetProxy(ns_proxy, kClientXml, kClientVTable, reuse, noOwnerCheck);
    return connection_ != nullptr;
}

ApiCall::Attempt ApiCall::TryOnce()
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

bool ApiCall::Ready()
{
    const Attempt first = TryOnce();
    if (first != Attempt::kUnreachable) {
        return first == Attempt::kReady;
    }
    // A call without the owner check makes the bus start the server.
    GetProxy(true, true);
    if (!GetProxy(false, false)) {
        KIV_LOG_AT(here_, kLogError, "!!! ERROR ns_proxy.GetProxy() return error, return");
        return false;
    }
    return true;
}

Reply ApiCall::Call(const char* method, GVariant* input, VariantOwner& preset, bool logsFailure) const
{
    const VariantOwner argument = Sink(input);
    GVariant* output = preset.get();
    const bool succeeded = CallServer(connection_.get(), method, argument.get(), &output, false);
    if (!succeeded && logsFailure) {
        KIV_LOG_AT(here_, kLogError, "[%s] MethodCall Error", kApiTag);
    }
    const bool replaced = output != preset.get();
    return {here_, method, succeeded, replaced ? VariantOwner(output) : std::move(preset)};
}

std::optional<int> ApiCall::Answer(const char* method, GVariant* input) const
{
    const Reply reply = Request(method, input);
    return reply ? std::optional(reply.Int(kApiFailed)) : std::nullopt;
}

int ApiCall::AnswerOrFailed(const char* method, GVariant* input) const
{
    return Answer(method, input).value_or(kApiFailed);
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

std::optional<bool> ApiCall::Ask(const char* question, bool preset) const
{
    VariantOwner value = Sink(g_variant_new("(b)", preset ? TRUE : FALSE));
    if (!value) {
        KIV_LOG_AT(here_, kLogError, "param_out is NULL");
    }
    const Reply reply = Invoke(question, nullptr, std::move(value));
    if (!reply) {
        KIV_LOG_AT(here_, kLogError, "MethodCall Error");
        return std::nullopt;
    }
    return reply.Bool();
}

std::optional<ByteReply> ApiCall::AskForBytes(const char* query, const char* noPreset) const
{
    VariantOwner preset = NoBytes();
    if (Refuses(!preset, noPreset)) {
        return std::nullopt;
    }
    return ByteReply(Invoke(query, g_variant_new("(i)", 0), std::move(preset)));
}

bool ApiCall::SendProcessId(const char* method) const
{
    const Reply reply = Request(method, g_variant_new("(i)", getpid()));
    if (reply) {
        AdoptClientId(here_, reply.String());
    }
    return static_cast<bool>(reply);
}

void ApiCall::LogRefusal(const char* condition) const
{
    KIV_LOG_AT(here_, kLogError, "(%s) return", condition);
}

GVariant* BytesTuple(Payload payload)
{
    const std::size_t size = payload.size();
    unsigned char* const data = payload.Release();
    return g_variant_new(
        "(@ay)", g_variant_new_from_data(G_VARIANT_TYPE_BYTESTRING, data, size, TRUE, std::free, data));
}

GVariant* Text(const char* text)
{
    char* const copy = g_strdup(text);
    // g_variant_new_string() would log a critical if the text is not valid.
    return g_variant_new_from_data(G_VARIANT_TYPE_STRING, copy, std::strlen(copy) + 1, TRUE, g_free, copy);
}

VariantOwner NoBytes()
{
    return Sink(g_variant_new("(ay)", nullptr));
}

} // namespace kiv::link
