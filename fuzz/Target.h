#pragma once

#include <cstddef>
#include <cstdint>

// libFuzzer, or Replay.cpp, calls these functions.
extern "C" {
// Connects the library's client, in the same way for all targets. From then on, a warning or critical of GLib counts as
// a finding. May start the program again.
int LLVMFuzzerInitialize(int* argc, char*** argv);
// Every target defines this function.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

namespace kiv::fuzz {

[[noreturn]] void ReportBroken(const char* expectation, const char* file, int line);

} // namespace kiv::fuzz

// Reports a finding unless the expectation holds.
#define KIV_REQUIRE(expectation) ((expectation) ? void() : ::kiv::fuzz::ReportBroken(#expectation, __FILE__, __LINE__))
