#include "tools/sandbox/ReplayCheck.h"

#include "simulator/ShortText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace kiv::sandbox {

namespace {

constexpr std::size_t kMostListed = 5;

std::string Calls(std::size_t count)
{
    return fmt::format("{} {}", count, count == 1 ? "call" : "calls");
}

} // namespace

void ReplayCheck::Add(const Message& message)
{
    if (message.errorName == simulator::kNotRecorded) {
        notRecorded_[{message.destination, message.replySerial}].clear();
    }
    if (IsServerCall(message)) {
        // A call without arguments has no body.
        const simulator::Variant arguments =
            message.body ? message.body : simulator::Own(g_variant_new_tuple(nullptr, 0));
        if (!replay_.Has(message.member, arguments.get())) {
            notRecorded_[{message.sender, message.serial}] = replay_.WhyNot(message.member, arguments.get());
        }
        replay_.Next(message.member, arguments.get());
    }
}

std::string ReplayCheck::Complaints() const
{
    std::string lines;
    if (!notRecorded_.empty()) {
        lines += fmt::format(
            "kiv-sandbox: --strict: {} {} not in {}\n", Calls(notRecorded_.size()),
            notRecorded_.size() == 1 ? "was" : "were", replay_.Name());
    }
    for (const auto& [call, reason] : notRecorded_) {
        lines += reason.empty() ? "" : fmt::format("  {}\n", reason);
    }
    const std::vector<simulator::RecordedExchange> unmade = replay_.Unmade();
    if (unmade.empty()) {
        return lines;
    }
    lines += fmt::format(
        "kiv-sandbox: --strict: {} of {} {} not made:\n", Calls(unmade.size()), replay_.Name(),
        unmade.size() == 1 ? "was" : "were");
    const std::size_t listed = std::min(unmade.size(), kMostListed);
    for (std::size_t index = 0; index < listed; ++index) {
        const simulator::RecordedExchange& call = unmade[index];
        lines += fmt::format("  line {}: {}{}\n", call.line, call.method, simulator::ShortText(call.arguments.get()));
    }
    return listed == unmade.size() ? lines : lines + fmt::format("  and {} more\n", unmade.size() - listed);
}

} // namespace kiv::sandbox
