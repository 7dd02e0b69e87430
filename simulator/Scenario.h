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

/** To one client, or to all if it has no name. */
struct EventPush {
    std::string client;
    Variant payload;
};

/** Something that becomes otherwise. What is empty stays as it is. */
struct Change {
    std::optional<std::string> clientId;
    /** Whether the TV has network speakers: "on", "off" or "absent". */
    std::optional<std::string> feature;
    HomeChange home;
    /** Descriptions by method; null for a fault that is taken back. */
    std::map<std::string, Variant> faults;
    std::vector<EventPush> events;
    /** How long the server is away from the bus, as after a crash. */
    std::optional<std::chrono::milliseconds> away;
    bool exit = false;
};

struct Appointment {
    std::chrono::milliseconds at{0};
    std::optional<std::chrono::milliseconds> every;
    Change change;
};

/** What people write into a file: a change for now, and others for later. */
struct Scenario {
    std::string description;
    Change now;
    std::optional<std::vector<Appointment>> timetable;
};

/** Throws FileError, with line and reason, for a scenario that cannot be used. The name stands for the text. */
Scenario ReadScenario(const std::string& name, const std::string& text);

/** Reads a scenario with which a server starts: as above, but only its timetable can have events or an exit. */
Scenario ReadFirstScenario(const std::string& name, const std::string& text);

/** The description of a fault, an a{sv}, from what a scenario says of it. Throws FileError. */
Variant ReadFault(const JsonNode& node);

/** An event id in hexadecimal with 0x before it; nothing for another text. */
std::optional<std::int32_t> ParseEventId(const std::string& text);

/** The keys that each kind of object in a scenario can have. */
std::map<std::string, std::set<std::string>> ScenarioKeys();

} // namespace kiv::simulator
