#include "tools/kivctl/Command.h"

#include "tools/kivctl/Bus.h"
#include "tools/kivctl/CallLog.h"
#include "tools/kivctl/CallWatch.h"
#include "tools/kivctl/Diagnosis.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <optional>
#include <utility>

namespace kiv::ctl {
namespace {

using Outcome = SeenCall::Outcome;

constexpr const char* kBusIsSilent = "the system bus does not answer";
constexpr const char* kConnectionIsLost = "the connection to the system bus is lost";

struct Reason {
    ExitCode exitCode;
    std::string text;
    std::string advice;
};

bool Is(const std::optional<SeenCall>& call, Outcome outcome)
{
    return call && call->outcome == outcome;
}

bool BusIsSilent(const SeenCalls& seen)
{
    return seen.connecting || Is(seen.ownerQuery, Outcome::kUnanswered);
}

std::string BusDoesNotTell(const SeenCalls& seen)
{
    return "the bus does not say whether the server runs: " + seen.ownerQuery->error;
}

// Returns why the library did not reach the server. A command that has not called the library gives its own reason.
Reason WhyNotReached(const SeenCalls& seen, const std::string& ownReason)
{
    const auto failed = [](const std::string& text) { return Reason{kFailed, text, kDoctorTellsWhy}; };
    const auto unreachable = [failed](const std::string& reason) {
        return failed(
            fmt::format("the network-speaker server cannot be reached{}{}", reason.empty() ? "" : ": ", reason));
    };
    if (!seen.noBus.empty()) {
        Reason reason = unreachable("the system bus " + NoBusText(seen.noBus));
        reason.advice = NoBusAdvice(reason.advice);
        return reason;
    }
    if (seen.lost) {
        return unreachable(kConnectionIsLost);
    }
    if (Is(seen.ownerQuery, Outcome::kUnanswered)) {
        return failed(kBusIsSilent);
    }
    if (Is(seen.ownerQuery, Outcome::kError)) {
        return unreachable(BusDoesNotTell(seen));
    }
    if (!seen.server) {
        return unreachable(ownReason);
    }
    switch (seen.server->outcome) {
    case Outcome::kUnanswered:
        return failed("the network-speaker server does not answer");
    case Outcome::kError:
        return seen.server->isOfBus
                   ? unreachable(seen.server->error)
                   : Reason{
                         kFailed, "the network-speaker server answers with the error " + seen.server->error,
                         ServerErrorAdvice(seen.server->error)};
    default:
        return {
            kFailed, fmt::format("the network-speaker server answers {} instead of a client id", seen.server->type),
            kUseThisInterface};
    }
}

// Returns why a request failed although the library had reached the server.
Reason WhyRequestFailed(const std::string& function, const std::string& libraryReason, const SeenCalls& seen)
{
    if (seen.lost) {
        return {kFailed, kConnectionIsLost, kDoctorTellsWhy};
    }
    if (Is(seen.ownerQuery, Outcome::kUnanswered)) {
        return {kFailed, kBusIsSilent, kDoctorTellsWhy};
    }
    if (Is(seen.ownerQuery, Outcome::kError)) {
        return {kFailed, BusDoesNotTell(seen), kDoctorTellsWhy};
    }
    if (seen.serverGone) {
        return {kFailed, "the server has gone", kServersLogTellsWhy};
    }
    if (!seen.server || seen.server->method == kIdMethod) {
        return {kFailed, libraryReason, "--verbose shows the library's log"};
    }
    // The method is named if it is not the function's own, because a function may make several requests.
    const std::string method = seen.server->method == function ? "" : seen.server->method + ' ';
    switch (seen.server->outcome) {
    case Outcome::kUnanswered:
        return {kFailed, fmt::format("the server has not answered {}in time", method), kServersLogTellsWhy};
    case Outcome::kError:
        return {
            kFailed,
            fmt::format(
                "the {} answered {}with the error {}", seen.server->isOfBus ? "bus" : "server", method,
                seen.server->error),
            ServerErrorAdvice(seen.server->error)};
    default:
        return {kFailed, libraryReason, seen.server->isRefusal ? kServersLogTellsWhy : kUseThisInterface};
    }
}

Reason WhyNotSent(const SeenCalls& seen, const std::string& ownReason)
{
    if (GetWhetherKivDisabled()) {
        return {kNoNetworkSpeakers, "this device has no network speakers", ""};
    }
    return WhyNotReached(seen, ownReason);
}

// Returns why a function failed. The refusal is the reason if the request got its answer.
Reason WhyFailed(const char* function, const Refusal& refusal)
{
    if (!ServerReached()) {
        return WhyNotSent(CallsSeen(), "");
    }
    const auto failure = RequestFailure();
    return failure ? WhyRequestFailed(function, *failure, CallsSeen())
                   : Reason{kFailed, refusal.reason, refusal.advice};
}

// Returns what a command still waits for.
Reason WhyNotDone(const SeenCalls& seen)
{
    if (BusIsSilent(seen)) {
        return {kTimedOut, kBusIsSilent, kDoctorTellsWhy};
    }
    if (!Is(seen.server, Outcome::kUnanswered)) {
        return {kTimedOut, seen.server ? "kivctl waits for events" : "it has not asked the server yet", ""};
    }
    const bool isFirst = seen.server->method == kIdMethod;
    return {
        kTimedOut, fmt::format("the server has not answered {}", seen.server->method),
        isFirst ? kDoctorTellsWhy : kServersLogTellsWhy};
}

Result Fail(const std::string& what, const Reason& reason, Json fields)
{
    std::string text = reason.text.empty() ? what : fmt::format("{}: {}", what, reason.text);
    fields["error"] = text;
    return {reason.exitCode, std::move(text), std::move(fields), reason.advice};
}

} // namespace

Result Done(std::string text, Json fields)
{
    return {kDone, std::move(text), std::move(fields)};
}

Result Failure(const std::string& reason, const std::string& advice)
{
    return {kFailed, reason, {{"error", reason}}, advice};
}

Result Failed(const char* function, const Json& value, const Refusal& refusal)
{
    return Fail(
        fmt::format("{} returned {}", function, value.dump()), WhyFailed(function, refusal), {{"result", value}});
}

Result Answered(const char* function, int value, const char* meaning, const Refusal& refusal)
{
    if (value == -1 || CallFailed()) {
        return Failed(function, value, refusal);
    }
    return Done(
        fmt::format("the server answered {}{}", value, *meaning == '\0' ? "" : fmt::format(" ({})", meaning)),
        {{"result", value}});
}

Result AnsweredNotZero(const char* function, int value, const char* meaning, const Refusal& refusal)
{
    return value == 0 ? Failed(function, value, refusal) : Answered(function, value, meaning, refusal);
}

Result AnsweredYesOrNo(const char* function, bool value, const char* yes, const char* no)
{
    return CallFailed() ? Failed(function, value) : Done(value ? yes : no, {{"result", value}});
}

Result Sent(const char* function, const Refusal& refusal)
{
    const SeenCalls seen = CallsSeen();
    const bool isRefused = seen.server && seen.server->isRefusal;
    return CallFailed() || isRefused ? Fail(function, WhyFailed(function, refusal), Json::object())
                                     : Done("sent", {{"sent", true}});
}

Result NotSent(const char* function, const std::string& reason)
{
    return Fail(
        function, WhyNotSent(FirstAttemptFailed() ? CallsSeenInFirstAttempt() : CallsSeen(), reason), Json::object());
}

Result TimedOut(const std::string& command, std::chrono::milliseconds limit, Asks asks)
{
    return Fail(
        fmt::format("{}: not done within {} ms", command, limit.count()),
        asks == Asks::kNobody ? Reason{kTimedOut, "kivctl waits for its input", ""} : WhyNotDone(CallsSeen()),
        Json::object());
}

void RemarkSilentBus(const Output& output)
{
    if (BusIsSilent(CallsSeen())) {
        output.Remark(fmt::format("the system bus has not answered yet, and kivctl waits for it; {}", kDoctorTellsWhy));
    }
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
