#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace kiv::ctl {

// Gives the words that may follow these, a line each: the word, a tab, its description. Empty where a value follows
// whose words are not known.
std::string Completions(const CLI::App& app, const std::vector<std::string>& words);

// Words that can be the value of the option or positional argument, to be completed.
void OfferValues(const CLI::Option* option, std::vector<std::string> values);

} // namespace kiv::ctl
