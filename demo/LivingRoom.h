#pragma once

// The person in the living room: no part of a TV application, hence on a bus connection of their own.
namespace demo {

// Plugs an Atmos receiver in, so to speak. The simulated server tells its subscribers, of which this process is one as
// soon as it serves the client object.
void ConnectAtmosReceiver();

} // namespace demo
