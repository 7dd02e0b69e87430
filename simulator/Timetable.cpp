#include "simulator/Timetable.h"

#include <algorithm>

namespace kiv::simulator {

void Timetable::Replace(const std::vector<Appointment>& appointments)
{
    const Clock::time_point now = Clock::now();
    due_ = std::make_shared<Due>();
    for (const Appointment& appointment : appointments) {
        due_->emplace(now + appointment.at, appointment);
    }
    AwaitNext();
}

void Timetable::AwaitNext()
{
    if (due_->empty()) {
        return;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due_->begin()->first - Clock::now());
    After(std::max(left, std::chrono::milliseconds(0)), While(due_, [this] { MakeNext(); }));
}

void Timetable::MakeNext()
{
    const auto next = due_->extract(due_->begin());
    const Appointment& appointment = next.mapped();
    if (appointment.every) {
        due_->emplace(next.key() + *appointment.every, appointment);
    }
    AwaitNext();
    // This is the last statement, because the change may replace the timetable.
    make_(appointment.change);
}

} // namespace kiv::simulator
