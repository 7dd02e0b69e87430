#pragma once

#include "simulator/BusObject.h"
#include "simulator/Clients.h"
#include "simulator/Home.h"

#include <functional>
#include <map>
#include <string>

namespace kiv::simulator {

/** Makes the tuple that answers a call. */
using Method = std::function<GVariant*(const Call&)>;
using Methods = std::map<std::string, Method>;

/** What the server answers to each of its methods, and what that does to the home. */
Methods ServerMethods(Home& home, Clients& clients);

} // namespace kiv::simulator
