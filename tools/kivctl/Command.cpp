#include "Command.h"

#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <utility>

namespace kiv::ctl {
namespace {

struct Reason {
    ExitCode exitCode;
    const char* text;
};

Reason WhyNotSent()
{
    if (GetWhetherKivDisabled()) {
        return {kNoNetworkSpeakers, "this device has no network speakers"};
    }
    return {kFailed, "the network-speaker server cannot be reached"};
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
        fmt::format("{} returned {}", function, value.dump()), ServerReached() ? Reason{kFailed, reason} : WhyNotSent(),
        {{"result", value}});
}

Result Answered(const char* function, int value)
{
    if (value == -1) {
        return Failed(function, value);
    }
    return Done(fmt::format("the server answered {}", value), {{"result", value}});
}

Result AnsweredNotZero(const char* function, int value)
{
    return value == 0 ? Failed(function, value) : Answered(function, value);
}

Result AnsweredYesOrNo(const char* function, bool value)
{
    if (!value && !ServerReached()) {
        return Failed(function, value);
    }
    return Done(value ? "yes" : "no", {{"result", value}});
}

Result Sent(const char* function)
{
    return ServerReached() ? Done("sent", {{"sent", true}}) : NotSent(function);
}

Result NotSent(const char* function)
{
    return Fail(function, WhyNotSent(), Json::object());
}

bool ServerReached()
{
    return CNSGdbus::m_pInstance->m_bProxyReady;
}

} // namespace kiv::ctl
