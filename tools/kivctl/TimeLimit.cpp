#include "TimeLimit.h"

#include "Command.h"

#include <cstdlib>
#include <utility>

namespace kiv::ctl {

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
