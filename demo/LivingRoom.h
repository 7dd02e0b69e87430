#pragma once

#include <string>
#include <vector>

// The person in the living room: no part of a TV application, hence on bus connections of their own.
namespace demo {

// Plugs an Atmos receiver in, so to speak. The simulated server tells its subscribers, of which this process is one as
// soon as it serves the client object.
void ConnectAtmosReceiver();

// Describes each speaker and whatever else there is to see, a line each.
std::vector<std::string> DescribeHome();

} // namespace demo
