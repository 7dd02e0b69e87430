#pragma once

#include "simulator/Scenario.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace kiv::simulator {

// Makes changes when their time has come.
class Timetable {
public:
    using Make = std::function<void(const Change&)>;

    void MakeChangesBy(Make make) { make_ = std::move(make); }
    // Replaces all appointments. Their times count from now.
    void Replace(const std::vector<Appointment>& appointments);

private:
    using Clock = std::chrono::steady_clock;
    // Ordered by due time. Appointments of the same time keep the order of the list.
    using Due = std::multimap<Clock::time_point, Appointment>;

    void AwaitNext();
    void MakeNext();

    Make make_;
    std::shared_ptr<Due> due_;
};

} // namespace kiv::simulator
