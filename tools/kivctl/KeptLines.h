#pragma once

#include <cstdio>

namespace kiv::ctl {

/*
 * The lines that the library logs to stderr. They are kept back until the end of the command is known: what a first
 * attempt logs is moot when a later one succeeds.
 */

// From now on, what is written to stderr is kept. If that is not possible, it goes on to be shown.
void KeepLogLines();

// Shows what is kept, and ends the keeping.
void ShowLogLines();

// Ends the keeping. Shows what is kept only if a request failed after the server had been found.
void DropMootLogLines();

// The stderr of the process, whatever is kept.
std::FILE* Stderr();

} // namespace kiv::ctl
