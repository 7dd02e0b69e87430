// Makes calls and receives events under callgrind, which writes the cost of each kind separately.

#include "bench/Control.h"
#include "bench/peers/EventPeer.h"
#include "bench/peers/Peer.h"

#include <valgrind/callgrind.h>

#include <cstdio>
#include <string>

namespace kiv::bench {

namespace {

// The warm-up does the work that is done only once. The figures are averages of many calls, so that work that is done
// once in many calls has its share.
constexpr int kWarmUp = 5;
constexpr int kCalls = 50;
constexpr unsigned kEvents = 200;

void CountCalls(const std::string& what, Peer& peer, const Request& request)
{
    for (int i = 0; i < kWarmUp; ++i) {
        peer.Call(request);
    }
    CALLGRIND_ZERO_STATS;
    for (int i = 0; i < kCalls; ++i) {
        peer.Call(request);
    }
    const std::string title = what + "/" + request.method + "/" + std::to_string(kCalls);
    CALLGRIND_DUMP_STATS_AT(title.c_str());
}

void CountEvents(const Control& control, const std::string& what, EventPeer& peer, unsigned subscribers)
{
    const auto push = [&](unsigned count) {
        ExpectEvents(static_cast<long>(subscribers) * count);
        control.Push(peer.Id(), count, 1);
        WaitForEvents();
    };
    peer.Subscribe(subscribers, OnEvent);
    control.WaitForClient(peer.Id());
    push(kWarmUp);
    CALLGRIND_ZERO_STATS;
    push(kEvents);
    const std::string title = what + "/" + std::to_string(subscribers) + " subscribers/" + std::to_string(kEvents);
    CALLGRIND_DUMP_STATS_AT(title.c_str());
}

void CountAll(const std::string& file)
{
    const std::unique_ptr<Peer> library = MakeLibraryPeer(file);
    for (const Request& request : kScalarRequests) {
        CountCalls("call", *library, request);
    }
    const std::unique_ptr<Peer> gio = MakeGioPeer();
    CountCalls("GIO", *gio, kScalarRequests.front());

    const Control control;
    const std::unique_ptr<EventPeer> events = MakeLibraryEvents(file);
    for (const unsigned subscribers : {1U, 101U}) {
        CountEvents(control, "event", *events, subscribers);
    }
    CountEvents(control, "GIO", *MakeGioEvents(), 1);
}

} // namespace

} // namespace kiv::bench

int main(int argc, char** argv)
{
    try {
        kiv::bench::CountAll(argc > 1 ? argv[1] : "");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kiv-bench-counted: %s\n", error.what());
        return 1;
    }
}
