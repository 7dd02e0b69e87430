#pragma once

#include <cstdio>

namespace kiv::ctl {

// Keeps the lines that the library logs to stderr until the result of the command is known, because the errors of a
// first attempt do not matter if a later one succeeds.

// Begins to keep what is written to stderr. If that is not possible, stderr stays as it is.
void KeepLogLines();

// Shows the kept lines, and ends the keeping.
void ShowLogLines();

// Ends the keeping. Shows the kept lines only if a request failed after the server had been found.
void DropMootLogLines();

// Returns the stderr of the process, whether or not lines are kept.
std::FILE* Stderr();

} // namespace kiv::ctl
