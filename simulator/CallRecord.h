#pragma once

#include "simulator/Glib.h"

#include <deque>
#include <string>

namespace kiv::simulator {

struct RecordedCall {
    std::string sender;
    std::string method;
    unsigned flags;
    Variant arguments;
};

/** The newest calls, in order. Keeps a simulator that serves for months from growing. */
class CallRecord {
public:
    explicit CallRecord(std::size_t most) : most_(most) {}

    void Add(RecordedCall call);
    void Forget();

    const std::deque<RecordedCall>& Calls() const { return calls_; }
    /** Number of the first of these calls, counted from 1 since the record was last empty. */
    unsigned FirstNumber() const { return firstNumber_; }

private:
    std::size_t most_;
    std::deque<RecordedCall> calls_;
    unsigned firstNumber_ = 1;
};

} // namespace kiv::simulator
