// Measures the first use in a process that has not used the bus yet, and prints it as one line of JSON.

#include "Control.h"
#include "peers/EventPeer.h"
#include "peers/Library.h"
#include "peers/Peer.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

namespace kiv::bench {

namespace {

using Clock = std::chrono::steady_clock;

double Milliseconds(Clock::time_point from)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - from).count();
}

void Measure(const std::string& library)
{
    const Clock::time_point start = Clock::now();
    if (!library.empty()) {
        const LoadedLibrary loaded(library);
    }
    const double loaded = Milliseconds(start);
    const std::unique_ptr<Peer> peer = library.empty() ? MakeGioPeer() : MakeLibraryPeer(library);
    peer->Call(kScalarRequests.front());
    const double called = Milliseconds(start);
    const std::unique_ptr<EventPeer> events = library.empty() ? MakeGioEvents() : MakeLibraryEvents(library);
    events->Subscribe(1, OnEvent);
    const Control control;
    control.WaitForClient(events->Id());
    ExpectEvents(1);
    control.Push(events->Id(), 1, 1);
    WaitForEvents();
    std::printf(
        R"({"peer": "%s", "loaded": %f, "first call": %f, "first event": %f})"
        "\n",
        library.empty() ? "GIO" : "library", loaded, called, Milliseconds(start));
}

} // namespace

} // namespace kiv::bench

// The argument is the library's file. Without it, bare GIO is measured.
int main(int argc, char** argv)
{
    try {
        kiv::bench::Measure(argc > 1 ? argv[1] : "");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kiv-bench-cold: %s\n", error.what());
        return 1;
    }
}
