#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace kiv::ctl {

// Returns the words that may follow these, each in a line: the word, a tab, its description. Returns nothing if a value
// follows whose words are not known.
std::string Completions(const CLI::App& app, const std::vector<std::string>& words);

// Offers these words as values of the option or positional argument when it is completed.
void OfferValues(const CLI::Option* option, std::vector<std::string> values);

} // namespace kiv::ctl
