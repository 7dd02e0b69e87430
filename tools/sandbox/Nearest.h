#pragma once

#include <string>
#include <vector>

namespace kiv::sandbox {

/// "; did you mean 'surround-set'?" for the word that is spelt most like the given one; empty if none is like it.
std::string DidYouMean(const std::string& given, const std::vector<std::string>& words);

} // namespace kiv::sandbox
