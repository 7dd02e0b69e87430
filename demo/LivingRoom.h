#pragma once

#include <string>
#include <vector>

// Stands for the person in the living room. That person is not part of a TV application, so these functions have bus
// connections of their own.
namespace demo {

// Waits until this process owns the name of its client object. An event that is pushed before that is lost.
void WaitUntilEventsArrive();

// Makes the simulated home have an Atmos receiver. The simulated server reports it to its subscribers.
void ConnectAtmosReceiver();

// Returns one line for each speaker and for each other thing in the home.
std::vector<std::string> DescribeHome();

} // namespace demo
