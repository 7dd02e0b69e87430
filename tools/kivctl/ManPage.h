#pragma once

#include <CLI/CLI.hpp>

namespace kiv::ctl {

// Writes a man page to stdout. Reads a template from stdin, and replaces lines such as <COMMANDS> by lists of the
// program's own commands. Returns whether that succeeded.
bool WriteManPage(const CLI::App& app);

} // namespace kiv::ctl
