#pragma once

#include <cstddef>
#include <cstdint>

// What a target defines for whoever runs it: libFuzzer, or the replay of a corpus.
extern "C" {
int LLVMFuzzerInitialize(int* argc, char*** argv);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

namespace kiv::fuzz {

// To be called first of all: from now on, a complaint of GLib's is a finding. Starts the program anew if need be.
void Prepare(char** argv);

[[noreturn]] void ReportBroken(const char* expectation, const char* file, int line);

} // namespace kiv::fuzz

// What must hold whatever the input is.
#define KIV_REQUIRE(expectation) ((expectation) ? void() : ::kiv::fuzz::ReportBroken(#expectation, __FILE__, __LINE__))
