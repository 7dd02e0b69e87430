#include "tools/kivctl/TimeLimit.h"

#include "tools/kivctl/Command.h"

#include <cstdlib>
#include <mutex>
#include <utility>

namespace kiv::ctl {

namespace {

std::mutex g_sayMutex;
AtTimeLimit::SayWhy g_sayWhy;

} // namespace

AtTimeLimit::AtTimeLimit(SayWhy sayWhy)
{
    const std::scoped_lock lock(g_sayMutex);
    g_sayWhy = std::move(sayWhy);
}

AtTimeLimit::~AtTimeLimit()
{
    const std::scoped_lock lock(g_sayMutex);
    g_sayWhy = nullptr;
}

bool AtTimeLimit::Say(std::chrono::milliseconds limit)
{
    const std::scoped_lock lock(g_sayMutex);
    if (!g_sayWhy) {
        return false;
    }
    g_sayWhy(limit);
    return true;
}

TimeLimit::TimeLimit(std::optional<std::chrono::milliseconds> limit, std::function<void()> sayWhy)
{
    if (limit) {
        alarm_.emplace(*limit, [sayWhy = std::move(sayWhy)] {
            sayWhy();
            std::_Exit(kTimedOut);
        });
    }
}

} // namespace kiv::ctl
