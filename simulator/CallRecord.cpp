#include "simulator/CallRecord.h"

#include <utility>

namespace kiv::simulator {

void CallRecord::Add(RecordedCall call)
{
    calls_.push_back(std::move(call));
    if (calls_.size() > most_) {
        calls_.pop_front();
        ++firstNumber_;
    }
}

void CallRecord::Forget()
{
    calls_.clear();
    firstNumber_ = 1;
}

} // namespace kiv::simulator
