#pragma once

#include <string>
#include <vector>

// The person in the living room: no part of a TV application, hence on bus connections of their own.
namespace demo {

// Waits until this process owns the name of its client object: an event that is pushed before is lost.
void WaitUntilEventsArrive();

// Plugs an Atmos receiver in, so to speak. The simulated server tells its subscribers.
void ConnectAtmosReceiver();

// Describes each speaker and whatever else there is to see, a line each.
std::vector<std::string> DescribeHome();

} // namespace demo
