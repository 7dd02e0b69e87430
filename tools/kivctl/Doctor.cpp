#include "tools/kivctl/Doctor.h"

#include "tools/kivctl/Alarm.h"
#include "tools/kivctl/Checks.h"
#include "tools/kivctl/KeptLines.h"
#include "tools/kivctl/TimeLimit.h"

#include <fmt/format.h>

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace kiv::ctl {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::chrono::milliseconds kPatience(250);
constexpr std::chrono::seconds kSlow(1);

const char* StateText(State state)
{
    switch (state) {
    case State::kOk:
        return "ok";
    case State::kNote:
        return "note";
    case State::kProblem:
        return "problem";
    default:
        return "skipped";
    }
}

// Shows what kivctl waits for, if that takes more than a moment.
class Pending {
public:
    Pending(const char* awaited, int limitSeconds, const Output& output)
        : alarm_(kPatience, [=, &output] { output.RemarkPending(awaited, limitSeconds); })
    {
    }

private:
    Alarm alarm_;
};

std::string Counted(int number, const char* what)
{
    return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

class Examination {
public:
    explicit Examination(const Output& output) : output_(output) {}

    Result Run()
    {
        const AtTimeLimit atTimeLimit([this](std::chrono::milliseconds limit) { EndInTime(limit); });
        output_.Remark("doctor has the bus start the server unless it runs, and subscribes to events for a moment");
        for (const Check& check : AllChecks()) {
            Make(check);
        }
        {
            const Pending pending(kUnsubscribePending, kUnsubscribeLimitSeconds, output_);
            checks_.Unsubscribe();
        }
        const std::scoped_lock lock(mutex_);
        const bool isWell = counts_[State::kProblem] == 0;
        return Sum(isWell ? kDone : kFailed, isWell ? WellHead() : "something is wrong", isWell);
    }

private:
    // Must be called under the lock.
    std::string WellHead()
    {
        if (isUnproven_) {
            return "no problem found, but events are not proven";
        }
        const int notes = counts_[State::kNote];
        return notes == 0
                   ? "nothing is wrong"
                   : fmt::format("no problem found, but see the {}", notes == 1 ? "note" : Counted(notes, "note"));
    }

    void Make(const Check& check)
    {
        for (const char* needed : check.needs) {
            if (const auto found = blame_.find(needed); found != blame_.end()) {
                blame_[check.subject] = found->second;
                Tell(check, Skipped(fmt::format("because of the problem with \"{}\"", found->second)), std::nullopt);
                return;
            }
        }
        const auto start = Clock::now();
        Finding finding = Examined(check);
        const Milliseconds taken = Clock::now() - start;
        if (finding.state == State::kProblem && finding.hindersOthers) {
            blame_[finding.isOfBus ? "bus" : check.subject] = check.subject;
            blame_[check.subject] = check.subject;
        } else if (finding.state == State::kOk && taken > kSlow) {
            finding.state = State::kNote;
            finding.advice = "this took over 1 s, and the calls of applications wait as long; find out what keeps the "
                             "bus or the server busy";
        }
        Tell(check, finding, taken);
        if (finding.state == State::kProblem) {
            ShowLogLines();
        }
    }

    Finding Examined(const Check& check)
    {
        const Pending pending(check.pending, check.limitSeconds, output_);
        return (checks_.*check.examine)();
    }

    static Finding Skipped(const std::string& cause) { return {State::kSkipped, "not tried, " + cause}; }

    void Tell(const Check& check, const Finding& finding, std::optional<Milliseconds> taken)
    {
        const std::scoped_lock lock(mutex_);
        if (!timeIsUp_) {
            Show(check, finding, taken);
        }
    }

    // Must be called under the lock.
    void Show(const Check& check, const Finding& finding, std::optional<Milliseconds> taken)
    {
        ++told_;
        begun_ = Clock::now();
        ++counts_[finding.state];
        isUnproven_ = isUnproven_ || finding.isUnproven;
        const std::string time = taken ? fmt::format("{:.0f} ms", taken->count()) : "";
        std::string text =
            fmt::format("{:8} {:13} {:>8}  {}", StateText(finding.state), check.subject, time, finding.text);
        if (!finding.advice.empty()) {
            text += fmt::format("\n{:33}-> {}", "", finding.advice);
        }
        output_.Show(
            text, {{"check", check.subject},
                   {"state", StateText(finding.state)},
                   {"found", finding.text},
                   {"advice", finding.advice},
                   {"milliseconds", taken ? Json(taken->count()) : Json(nullptr)}});
    }

    // Runs on the time limit's thread. Shows the checks that the main thread has not come to, then the process ends.
    void EndInTime(std::chrono::milliseconds limit)
    {
        const std::scoped_lock lock(mutex_);
        timeIsUp_ = true;
        const std::vector<Check>& checks = AllChecks();
        std::string during = kUnsubscribePending;
        if (told_ < checks.size()) {
            const Check& check = checks[told_];
            during = check.pending;
            // The time from the beginning to the end of this check, with its whole limit.
            const auto enough =
                std::chrono::floor<std::chrono::seconds>(begun_ - start_).count() + check.limitSeconds + 1;
            Show(
                check, {State::kNote, "not known within --timeout", fmt::format("give it {} s", enough)},
                Clock::now() - begun_);
        }
        while (told_ < checks.size()) {
            Show(checks[told_], Skipped("because the time is up"), std::nullopt);
        }
        const std::string reason = fmt::format("not done within {} ms, {}", limit.count(), during);
        const Result sum = Sum(kTimedOut, reason, false);
        Json fields = {{"command", "doctor"}};
        fields.update(sum.fields);
        fields["error"] = "doctor: " + reason;
        output_.Show(sum.text, fields);
    }

    // Must be called under the lock.
    Result Sum(ExitCode exitCode, const std::string& head, bool isWell)
    {
        const int problems = counts_[State::kProblem];
        const int notes = counts_[State::kNote];
        return {
            exitCode,
            fmt::format(
                "{}: {}, {}, {} ok, {} skipped", head, Counted(problems, "problem"), Counted(notes, "note"),
                counts_[State::kOk], counts_[State::kSkipped]),
            {{"result", isWell},
             {"problems", problems},
             {"notes", notes},
             {"ok", counts_[State::kOk]},
             {"skipped", counts_[State::kSkipped]}}};
    }

    const Output& output_;
    const Clock::time_point start_ = Clock::now();
    Checks checks_;
    // For each check that failed or was left out: the check whose problem is the cause.
    std::map<std::string, std::string> blame_;

    // Guards the members below, which the time limit's thread uses, too, and the output.
    std::mutex mutex_;
    std::map<State, int> counts_;
    bool isUnproven_ = false;
    size_t told_ = 0;                        // number of checks whose findings are shown
    Clock::time_point begun_ = Clock::now(); // beginning of the current check
    bool timeIsUp_ = false;
};

} // namespace

Result Examine(const Output& output)
{
    return Examination(output).Run();
}

} // namespace kiv::ctl
