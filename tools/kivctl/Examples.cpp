#include "tools/kivctl/Examples.h"

#include <map>

namespace kiv::ctl {
namespace {

// Each of these succeeds in the home of the simulated server.
const std::map<std::string, std::string> kExamples = {
    {"start", "kivctl start --mode surround 02:4b:49:56:00:01 02:4b:49:56:00:02=3"},
    {"stop", "kivctl stop"},
    {"surround off", "kivctl surround off"},
    {"surround channels", "kivctl surround channels"},
    {"list active", "kivctl list active --hex"},
    {"list all", "kivctl --json list all"},
    {"list count", "kivctl list count"},
    {"list nodes", "kivctl list nodes"},
    {"connect new", "kivctl connect new 02:4b:49:56:00:05"},
    {"connect direct", "kivctl connect direct 5"},
    {"connect by-mobile", "kivctl connect by-mobile '02 4b 49 56 00 05'"},
    {"connect by-id", "kivctl connect by-id 80 5 0"},
    {"connect group", "kivctl connect group 1"},
    {"connect type", "kivctl connect type 02:4b:49:56:00:01"},
    {"name", "kivctl name 02:4b:49:56:00:01 'Left of the sofa'"},
    {"volume get", "kivctl volume get --wait 02:4b:49:56:00:01"},
    {"volume set", "kivctl volume set 02:4b:49:56:00:01 30"},
    {"volume up", "kivctl volume up 02:4b:49:56:00:01 02:4b:49:56:00:02"},
    {"volume down", "kivctl volume down 02:4b:49:56:00:01"},
    {"volume reset", "kivctl volume reset 02:4b:49:56:00:01"},
    {"volume reset-all", "kivctl volume reset-all"},
    {"mode get", "kivctl --timeout 2 --timing mode get"},
    {"mode ui get", "kivctl mode ui get"},
    {"mode ui set", "kivctl mode ui set multiroom"},
    {"mode can-enter", "kivctl mode can-enter"},
    {"mode enabled", "kivctl mode enabled"},
    {"link can-cancel", "kivctl link can-cancel"},
    {"link pre-select", "kivctl link pre-select"},
    {"link can-select", "kivctl link can-select"},
    {"tone start", "kivctl tone start 02:4b:49:56:00:01 --channel 1"},
    {"tone stop", "kivctl tone stop 02:4b:49:56:00:01"},
    {"soundbar mode get", "kivctl soundbar mode get"},
    {"soundbar mode set", "kivctl soundbar mode set 02:4b:49:56:00:b0 '01 05 00 00 00'"},
    {"soundbar info", "kivctl soundbar info"},
    {"soundbar support get", "kivctl soundbar support get 02:4b:49:56:00:b0"},
    {"soundbar support set", "kivctl soundbar support set 02:4b:49:56:00:b0 yes"},
    {"soundbar version", "kivctl soundbar version 02:4b:49:56:00:b0"},
    {"monitor", "kivctl monitor --for 2"},
    {"atmos", "kivctl atmos"},
    {"node-remove", "kivctl node-remove 2"},
    {"doctor", "kivctl doctor"},
    {"explain", "kivctl --verbose mode get 2>&1 | kivctl explain"},
    {"enabled", "kivctl enabled"},
    {"sizes", "kivctl sizes"},
    {"call", "kivctl call SetNetSpkVolume 02:4b:49:56:00:01 30"},
    {"help", "kivctl help volume set"},
};

} // namespace

std::string ExampleOf(const std::string& command)
{
    const auto found = kExamples.find(command);
    return found == kExamples.end() ? "" : found->second;
}

} // namespace kiv::ctl
