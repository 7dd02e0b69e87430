#pragma once

#include <glib.h>

#include <functional>
#include <string>
#include <vector>

namespace kiv::simulator {

// Answers calls that wait for the state to change. While a call waits, the state is compared each time before the main
// loop sleeps, so that code that changes the state need not report it. While no call waits, the watch costs nothing.
class StateWatch {
public:
    using Answer = std::function<void(const std::string& state)>;

    explicit StateWatch(std::function<std::string()> state);
    StateWatch(const StateWatch&) = delete;
    StateWatch& operator=(const StateWatch&) = delete;
    ~StateWatch();

    // Answers with the state as soon as it differs from the known one.
    void Await(std::string known, Answer answer) { waiters_.push_back({std::move(known), std::move(answer)}); }

private:
    struct Source;
    struct Waiter {
        std::string known;
        Answer answer;
    };

    void Look();

    std::function<std::string()> state_;
    std::vector<Waiter> waiters_;
    GSource* source_;
};

} // namespace kiv::simulator
