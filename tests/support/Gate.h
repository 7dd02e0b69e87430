#pragma once

#include "support/Platform.h"
#include "support/Wait.h"

#include <future>
#include <string>

namespace kiv::test {

// A point at which a thread waits until the test lets it go on. One thread passes it, once.
class Gate {
public:
    void Pass()
    {
        reached_.set_value();
        Await("the test to let the thread go on", open_.get_future());
    }
    void WaitUntilReached() { Await("a thread to reach the gate", reached_.get_future()); }
    void Open() { open_.set_value(); }

private:
    std::promise<void> reached_;
    std::promise<void> open_;
};

// Stops the thread that next logs a line.
class StopAtLine {
public:
    explicit StopAtLine(const std::string& shortForm)
    {
        platform_log::OnLine([this, shortForm](const LogLine& line) {
            if (line.Short() == shortForm) {
                gate_.Pass();
            }
        });
    }

    void WaitUntilReached() { gate_.WaitUntilReached(); }
    // Lets the thread go on, and stops none any more.
    void Release()
    {
        platform_log::OnLine(nullptr);
        gate_.Open();
    }

private:
    Gate gate_;
};

} // namespace kiv::test
