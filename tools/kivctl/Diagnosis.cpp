#include "tools/kivctl/Diagnosis.h"

#include "simulator/Replay.h"

#include <fmt/format.h>

namespace kiv::ctl {

namespace {

constexpr const char* kSeeWhyItEnded = "look into the server's own log to see why it ended";
constexpr const char* kRunServiceFile = "run the command of its service file by hand to see what it says";
constexpr const char* kServiceUnknown = "org.freedesktop.DBus.Error.ServiceUnknown";
constexpr const char* kNameHasNoOwner = "org.freedesktop.DBus.Error.NameHasNoOwner";

} // namespace

std::string FailedBy(const std::string& peer, const std::string& error)
{
    // The bus answers for a peer that has gone.
    if (error.starts_with(kNoReply)) {
        return peer + " ended before it answered";
    }
    const bool isOfBus =
        error.starts_with(kAccessDenied) || error.starts_with(kServiceUnknown) || error.starts_with(kNameHasNoOwner);
    return fmt::format("{} {} {}", peer, isOfBus ? "cannot be asked:" : "answers with the error", error);
}

std::string ServerErrorAdvice(std::string_view error)
{
    if (error.starts_with(kAccessDenied)) {
        return kInstallPolicy;
    }
    if (error.starts_with(kNoReply)) {
        return kSeeWhyItEnded;
    }
    if (error.starts_with(kUnknownMethod)) {
        return kUseThisInterface;
    }
    return error.starts_with(simulator::kNotRecorded) ? kRecordingLacksCall
                                                      : "look into the server's own log to see what the error means";
}

Diagnosis ServerDoesNotRun(const std::string& reason)
{
    return {"does not run: " + reason, reason.starts_with(kSpawnErrors) ? kRunServiceFile : kSeeTheServersLog};
}

Diagnosis DiagnoseServerCall(const std::string& error)
{
    if (error.starts_with(kServiceUnknown)) {
        return {kCannotStartServer, kInstallServiceFile};
    }
    if (error.starts_with(kSpawnErrors)) {
        const Diagnosis server = ServerDoesNotRun(error);
        return {"the server " + server.found, server.advice};
    }
    return {FailedBy("the server", error), ServerErrorAdvice(error)};
}

} // namespace kiv::ctl
