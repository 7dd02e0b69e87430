#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace kiv::ctl {

// What may follow these words of a command line, for a shell that completes it: a line each, a word and, behind a tab,
// what it does. Nothing where a value is to follow.
std::string Completions(const CLI::App& app, const std::vector<std::string>& words);

} // namespace kiv::ctl
