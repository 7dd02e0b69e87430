#include "simulator/World.h"

#include "simulator/BusObject.h"
#include "simulator/Feature.h"
#include "simulator/Interfaces.h"

namespace kiv::simulator {

namespace {

// All of these calls fit in one message of the bus.
constexpr std::size_t kMostRecorded = 100000;

} // namespace

World::World(const Scenario& scenario) : faults(Interface(kServerXml)), calls(kMostRecorded)
{
    // The program that starts the simulator has written the feature file.
    Change change = scenario.now;
    change.feature.reset();
    Apply(change);
    timetable.Replace(scenario.timetable.value_or(std::vector<Appointment>()));
}

bool World::Apply(const Change& change)
{
    if (change.feature) {
        WriteFeature(featureFile, *change.feature);
    }
    if (change.clientId) {
        clients.UseId(change.clientId);
    }
    for (const auto& [method, fault] : change.faults) {
        if (fault == nullptr) {
            faults.Clear(method);
        } else {
            faults.Set(method, fault.get());
        }
    }
    return home.Apply(change.home);
}

} // namespace kiv::simulator
