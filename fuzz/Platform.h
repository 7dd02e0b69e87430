#pragma once

namespace kiv::fuzz {

// Returns how many lines of priority error were logged since the last call.
int TakeErrorCount();

} // namespace kiv::fuzz
