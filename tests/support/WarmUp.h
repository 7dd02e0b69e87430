#pragma once

namespace kiv::test {

// Runs what most tests run inside GLib, so that an emulator has translated it before the program forks for each test.
// The library is not used, because a test must find it as a host finds it. No thread is left.
void WarmUp();

} // namespace kiv::test
