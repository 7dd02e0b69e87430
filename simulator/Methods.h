#pragma once

#include "simulator/BusObject.h"
#include "simulator/Clients.h"
#include "simulator/Home.h"

#include <functional>
#include <map>
#include <string>

namespace kiv::simulator {

// Returns the tuple that answers a call.
using Method = std::function<GVariant*(const Call&)>;
using Methods = std::map<std::string, Method>;

// Returns the methods of the server. Each answers a call, and changes the home as the call asks.
Methods ServerMethods(Home& home, Clients& clients);

} // namespace kiv::simulator
