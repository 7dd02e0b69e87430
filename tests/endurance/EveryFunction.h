#pragma once

namespace kiv::endurance {

// Calls every function that calls the server, with valid arguments and with arguments that it refuses. Any number of
// threads may call this at the same time.
void CallEveryFunction();

// Returns the number of these calls.
int FunctionCount();

// Makes the call with this number. Numbers begin with 0.
void CallFunction(int number);

// Adds the callbacks that some of these calls remove.
void AddCallbacks();

} // namespace kiv::endurance
