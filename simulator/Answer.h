#pragma once

namespace kiv::simulator {

// The int answers that all methods share.
inline constexpr int kDone = 0;
inline constexpr int kRefused = -1;

} // namespace kiv::simulator
