#pragma once

namespace kiv::fuzz {

// Lines of priority error since the last time that this was asked.
int TakeErrorCount();

} // namespace kiv::fuzz
