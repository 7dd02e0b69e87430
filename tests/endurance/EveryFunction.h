#pragma once

namespace kiv::endurance {

/*
 * Calls every function of the library that calls the server, with arguments that it sends and with some that it
 * refuses. Any number of threads may do so.
 */
void CallEveryFunction();

// How many calls that is.
int FunctionCount();

// The one of these calls that has this number, from 0 on.
void CallFunction(int number);

} // namespace kiv::endurance
