#pragma once

#include <cstddef>
#include <cstdint>

// Every target defines these functions. libFuzzer, or Replay.cpp, calls them.
extern "C" {
int LLVMFuzzerInitialize(int* argc, char*** argv);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

namespace kiv::fuzz {

// Must be called first. From then on, a warning or critical of GLib counts as a finding. May start the program again.
void Prepare(char** argv);

[[noreturn]] void ReportBroken(const char* expectation, const char* file, int line);

} // namespace kiv::fuzz

// Reports a finding unless the expectation holds.
#define KIV_REQUIRE(expectation) ((expectation) ? void() : ::kiv::fuzz::ReportBroken(#expectation, __FILE__, __LINE__))
