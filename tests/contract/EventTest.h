#pragma once

#include "contract/ApiTest.h"

#include <unistd.h>

#include <functional>
#include <map>
#include <mutex>
#include <utility>

namespace kiv::test {

// Callbacks of a host, each with a letter. Each records that it was called, and then runs the action that the test has
// set.
class Callbacks {
public:
    static void Do(char letter, std::function<void()> action)
    {
        const std::lock_guard lock(mutex_);
        actions_[letter] = std::move(action);
    }

    // Returns the calls since the last time, in order.
    static Lines TakeCalls()
    {
        const std::lock_guard lock(mutex_);
        return std::exchange(calls_, {});
    }

    static void Run(char letter, const std::string& arguments)
    {
        std::function<void()> action;
        {
            const std::lock_guard lock(mutex_);
            calls_.push_back(std::string(1, letter) + "(" + arguments + ")");
            action = actions_[letter];
        }
        if (action) {
            action();
        }
    }

private:
    inline static std::mutex mutex_;
    inline static Lines calls_;
    inline static std::map<char, std::function<void()>> actions_;
};

// Recorded as "a(7, 3)": event id and length.
template <char Letter>
void Subscriber(int eventId, void* /*data*/, int length)
{
    Callbacks::Run(Letter, std::to_string(eventId) + ", " + std::to_string(length));
}

// Recorded as "a(1, hall)": its user data is a text.
template <char Letter>
void AtmosReceiver(int supported, void* userData)
{
    Callbacks::Run(Letter, std::to_string(supported) + ", " + static_cast<const char*>(userData));
}

class EventTest : public BusTest {
protected:
    explicit EventTest(const sandbox::BusOptions& options = {}) : BusTest(options) {}

    static constexpr int kEvent = 7;

    // Makes the server push an event, and returns when all its receivers have been called.
    void Notify(int eventId, const std::vector<unsigned char>& data = {})
    {
        control_.SendEvent(eventId, data);
        // The monitor thread answers this event, which has no receivers, after it has handled the one before.
        control_.SendEvent(0, {});
    }

    Lines CallsAfter(int eventId)
    {
        Callbacks::TakeCalls();
        Notify(eventId);
        return Callbacks::TakeCalls();
    }

    // Returns the lines of the event dispatch, without the line that each event starts with.
    static Lines DispatchLines()
    {
        Lines lines = platform_log::OfFunction("NamNotifySubscriber");
        std::erase(lines, "I NamNotifySubscriber: [NAM_API] ** Enter **");
        return lines;
    }
};

// Returns the lines of a call when the server answers both calls, between which nothing is logged.
inline Lines AnsweredLines(const std::string& function)
{
    return PrologueLines(function) + kEnter;
}

// Returns a call with the id of this process.
inline std::string WithPid(const std::string& method)
{
    return method + "(" + std::to_string(getpid()) + ")";
}

inline std::string AdoptionLine(const std::string& function, const std::string& before, const std::string& received)
{
    return "W " + function + ": ns_proxy.strProxyObj[" + before + "], pProxyObj[" + received + "]";
}

inline const std::string kCallbackThrewLine = "E NamNotifySubscriber: [NAM_API] exception from a callback dropped";

} // namespace kiv::test
