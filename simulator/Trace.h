#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <utility>

namespace kiv::simulator {

// Prints what the simulator does to stderr, line by line, if that is wanted.
class Trace {
public:
    explicit Trace(bool wanted) : wanted_(wanted) {}

    template <typename... Args>
    void operator()(fmt::format_string<Args...> format, Args&&... args) const
    {
        if (wanted_) {
            std::fputs((fmt::format(format, std::forward<Args>(args)...) + '\n').c_str(), stderr);
        }
    }

private:
    bool wanted_;
};

} // namespace kiv::simulator
