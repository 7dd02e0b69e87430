#include "platform/host/LogSettings.h"

#include "platform/Platform.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>

namespace kiv::platform {
namespace {

template <typename Value>
struct Choice {
    std::string_view name;
    Value value;
};

constexpr Choice<int> kMinimums[] = {{"debug", kLogDebug},     {"info", kLogInfo},
                                     {"warning", kLogWarning}, {"error", kLogError},
                                     {"fatal", kLogMark},      {"none", std::numeric_limits<int>::max()}};
constexpr Choice<int> kDefaultMinimum = kMinimums[2];

constexpr Choice<LogTarget> kTargets[] = {
    {"stderr", LogTarget::kStderr}, {"journal", LogTarget::kJournal}, {"syslog", LogTarget::kSyslog}};
constexpr Choice<LogTarget> kDefaultTarget = kTargets[0];

template <typename Choices>
std::string NamesOf(const Choices& choices)
{
    std::string names;
    for (const auto& choice : choices) {
        names.append(names.empty() ? "" : ", ").append(choice.name);
    }
    return names;
}

template <typename Value, std::size_t Count>
Value Choose(const char* variable, const Choice<Value> (&choices)[Count], const Choice<Value>& fallback)
{
    const char* const wanted = std::getenv(variable);
    if (wanted == nullptr || *wanted == '\0') {
        return fallback.value;
    }
    const auto* const choice =
        std::find_if(std::begin(choices), std::end(choices), [&](const auto& each) { return each.name == wanted; });
    if (choice != std::end(choices)) {
        return choice->value;
    }
    std::fprintf(
        stderr, "%s: '%s' is not one of %s; '%s' is used\n", variable, wanted, NamesOf(choices).c_str(),
        std::string(fallback.name).c_str());
    return fallback.value;
}

} // namespace

LogSettings ReadLogSettings()
{
    return {Choose("KIV_LOG_LEVEL", kMinimums, kDefaultMinimum), Choose("KIV_LOG_TARGET", kTargets, kDefaultTarget)};
}

} // namespace kiv::platform
