#include "Doctor.h"

#include "Alarm.h"
#include "Checks.h"

#include <fmt/format.h>

#include <chrono>
#include <map>
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

// Tells what is awaited if that takes more than a moment.
class Pending {
public:
    Pending(const char* text, const Output& output)
        : alarm_(kPatience, [text, &output] { output.Remark(fmt::format("{} ...", text)); })
    {
    }

private:
    Alarm alarm_;
};

class Examination {
public:
    explicit Examination(const Output& output) : output_(output) {}

    Result Run()
    {
        output_.Remark("doctor has the bus start the server unless it runs, and subscribes to events for a moment");
        for (const Check& check : AllChecks()) {
            Make(check);
        }
        {
            const Pending pending(kUnsubscribePending, output_);
            checks_.Unsubscribe();
        }
        return Sum();
    }

private:
    void Make(const Check& check)
    {
        for (const char* needed : check.needs) {
            if (const auto found = blame_.find(needed); found != blame_.end()) {
                blame_[check.subject] = found->second;
                Show(
                    check,
                    {State::kSkipped, fmt::format("not tried, because of the problem with \"{}\"", found->second)},
                    std::nullopt);
                return;
            }
        }
        const auto start = Clock::now();
        Finding finding = Examined(check);
        const Milliseconds taken = Clock::now() - start;
        if (finding.state == State::kProblem) {
            blame_[check.subject] = check.subject;
        } else if (finding.state == State::kOk && taken > kSlow) {
            finding.state = State::kNote;
            finding.advice =
                "over 1 s, and an application's calls wait as long; see what keeps the bus or the server busy";
        }
        Show(check, finding, taken);
    }

    Finding Examined(const Check& check)
    {
        std::optional<Pending> pending;
        if (check.pending != nullptr) {
            pending.emplace(check.pending, output_);
        }
        return (checks_.*check.examine)();
    }

    void Show(const Check& check, const Finding& finding, std::optional<Milliseconds> taken)
    {
        ++counts_[finding.state];
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

    Result Sum()
    {
        const int problems = counts_[State::kProblem];
        const int notes = counts_[State::kNote];
        const std::string text = fmt::format(
            "{}: {} problem{}, {} note{}, {} ok, {} skipped", problems == 0 ? "nothing is wrong" : "something is wrong",
            problems, problems == 1 ? "" : "s", notes, notes == 1 ? "" : "s", counts_[State::kOk],
            counts_[State::kSkipped]);
        return {
            problems == 0 ? kDone : kFailed,
            text,
            {{"result", problems == 0},
             {"problems", problems},
             {"notes", notes},
             {"ok", counts_[State::kOk]},
             {"skipped", counts_[State::kSkipped]}}};
    }

    const Output& output_;
    Checks checks_;
    // By each check on which no other can build: the check whose problem is the cause.
    std::map<std::string, std::string> blame_;
    std::map<State, int> counts_;
};

} // namespace

Result Examine(const Output& output)
{
    return Examination(output).Run();
}

} // namespace kiv::ctl
