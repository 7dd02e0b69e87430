#pragma once

#include "simulator/Glib.h"

#include <deque>
#include <string>
#include <utility>

namespace kiv::simulator {

struct RecordedCall {
    std::string sender;
    std::string method;
    unsigned flags;
    Variant arguments;
};

// The newest calls, in order. The number of calls is limited, because a simulator may serve for months.
class CallRecord {
public:
    explicit CallRecord(std::size_t most) : most_(most) {}

    void Add(RecordedCall call)
    {
        calls_.push_back(std::move(call));
        if (calls_.size() > most_) {
            calls_.pop_front();
            ++firstNumber_;
        }
    }
    void Forget() { *this = CallRecord(most_); }

    const std::deque<RecordedCall>& Calls() const { return calls_; }
    // Returns the number of the first of these calls. Numbers begin with 1 when the record is empty.
    unsigned FirstNumber() const { return firstNumber_; }

private:
    std::size_t most_;
    std::deque<RecordedCall> calls_;
    unsigned firstNumber_ = 1;
};

} // namespace kiv::simulator
