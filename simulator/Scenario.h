#pragma once

#include "simulator/Glib.h"
#include "simulator/Home.h"
#include "simulator/JsonNode.h"

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kiv::simulator {

// An event for one client, or for all if the name is empty.
struct EventPush {
    std::string client;
    Variant payload;
};

// A change. An empty member changes nothing.
struct Change {
    std::optional<std::string> clientId;
    // The state of the TV's feature: "on", "off" or "absent".
    std::optional<std::string> feature;
    HomeChange home;
    // The descriptions by method. Null takes a fault back.
    std::map<std::string, Variant> faults;
    std::vector<EventPush> events;
    // The time for which the server is away from the bus after a crash.
    std::optional<std::chrono::milliseconds> away;
    bool exit = false;
};

struct Appointment {
    std::chrono::milliseconds at{0};
    std::optional<std::chrono::milliseconds> every;
    Change change;
};

// The content of a scenario file: a change for now, and others for later.
struct Scenario {
    std::string description;
    Change now;
    std::optional<std::vector<Appointment>> timetable;
};

// Reads a scenario. Throws FileError, with line and reason, if it cannot be used. Messages call the text by the name.
Scenario ReadScenario(const std::string& name, const std::string& text);

// Reads a scenario with which a server starts. It must not have events, because no client could receive them yet, nor
// an exit, except in its timetable.
Scenario ReadFirstScenario(const std::string& name, const std::string& text);

// Returns the description of a fault, an a{sv}, from its form in a scenario. Throws FileError if it is not valid.
Variant ReadFault(const JsonNode& node);

// Reads an event id in hexadecimal, with 0x before it. Returns nothing for another text.
std::optional<std::int32_t> ParseEventId(const std::string& text);

// Returns the keys that each kind of object in a scenario can have.
std::map<std::string, std::set<std::string>> ScenarioKeys();

} // namespace kiv::simulator
