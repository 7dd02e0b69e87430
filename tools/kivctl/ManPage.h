#pragma once

#include <CLI/CLI.hpp>

namespace kiv::ctl {

// Writes a man page to stdout: a template from stdin, in which lines such as <COMMANDS> stand for what the program
// itself knows. Returns whether that succeeded.
bool WriteManPage(const CLI::App& app);

} // namespace kiv::ctl
