#include "Command.h"

#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <utility>

namespace kiv::ctl {

Result Done(std::string text, Json fields)
{
    return {kDone, std::move(text), std::move(fields)};
}

Result Failed(const char* function, const Json& value)
{
    const auto fail = [&](ExitCode exitCode, const char* reason) {
        const std::string text = fmt::format("{} returned {}: {}", function, value.dump(), reason);
        return Result{exitCode, text, {{"result", value}, {"error", text}}};
    };
    if (GetWhetherKivDisabled()) {
        return fail(kNoNetworkSpeakers, "this device has no network speakers");
    }
    if (!ServerReached()) {
        return fail(kFailed, "the network-speaker server cannot be reached");
    }
    return fail(kFailed, "the request failed, or the server refused it");
}

Result Answered(const char* function, int value)
{
    if (value == -1) {
        return Failed(function, value);
    }
    return Done(fmt::format("the server answered {}", value), {{"result", value}});
}

bool ServerReached()
{
    return CNSGdbus::m_pInstance->m_bProxyReady;
}

} // namespace kiv::ctl
