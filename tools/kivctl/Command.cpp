#include "Command.h"

#include "CallLog.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <utility>

namespace kiv::ctl {
namespace {

constexpr const char* kRefused =
    "the server answered so, which usually means that it refuses, or knows no such speaker (kivctl list nodes)";

struct Reason {
    ExitCode exitCode;
    std::string text;
};

Reason WhyNotSent()
{
    if (GetWhetherKivDisabled()) {
        return {kNoNetworkSpeakers, "this device has no network speakers"};
    }
    return {kFailed, "the network-speaker server cannot be reached"};
}

// The reason is that of a call which got an answer.
Reason WhyFailed(const char* reason)
{
    if (!ServerReached()) {
        return WhyNotSent();
    }
    const auto failure = RequestFailure();
    return {kFailed, failure ? fmt::format("the request failed: {}", *failure) : reason};
}

Result Fail(const std::string& what, const Reason& reason, Json fields)
{
    std::string text = fmt::format("{}: {}", what, reason.text);
    fields["error"] = text;
    return {reason.exitCode, std::move(text), std::move(fields)};
}

} // namespace

Result Done(std::string text, Json fields)
{
    return {kDone, std::move(text), std::move(fields)};
}

Result Failed(const char* function, const Json& value, const char* reason)
{
    return Fail(
        fmt::format("{} returned {}", function, value.dump()), WhyFailed(reason == nullptr ? kRefused : reason),
        {{"result", value}});
}

Result Answered(const char* function, int value, const char* meaning)
{
    if (value == -1 || CallFailed()) {
        return Failed(function, value);
    }
    return Done(
        fmt::format("the server answered {}{}", value, *meaning == '\0' ? "" : fmt::format(" ({})", meaning)),
        {{"result", value}});
}

Result AnsweredNotZero(const char* function, int value, const char* meaning)
{
    return value == 0 ? Failed(function, value) : Answered(function, value, meaning);
}

Result AnsweredYesOrNo(const char* function, bool value, const char* yes, const char* no)
{
    return CallFailed() ? Failed(function, value) : Done(value ? yes : no, {{"result", value}});
}

Result Sent(const char* function)
{
    return CallFailed() ? Fail(function, WhyFailed(""), Json::object()) : Done("sent", {{"sent", true}});
}

Result NotSent(const char* function)
{
    return Fail(function, WhyNotSent(), Json::object());
}

bool ServerReached()
{
    return CNSGdbus::m_pInstance->m_bProxyReady;
}

bool CallFailed()
{
    return !ServerReached() || RequestFailure().has_value();
}

} // namespace kiv::ctl
