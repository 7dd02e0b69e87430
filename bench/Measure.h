#pragma once

#include "peers/Peer.h"

#include <sys/types.h>

#include <memory>
#include <vector>

namespace kiv::bench {

// What this process and the two that serve it have used; times in nanoseconds.
struct Usage {
    double wall = 0;
    double user = 0;
    double system = 0;
    double daemon = 0;
    double server = 0;
    double switches = 0;

    Usage operator-(const Usage& earlier) const;
    Usage operator/(double count) const;
};

// The processes whose time is read with that of this one.
class Meter {
public:
    Meter(pid_t daemon, pid_t server) : daemon_(daemon), server_(server) {}

    Usage Read() const;

private:
    pid_t daemon_;
    pid_t server_;
};

// A peer for each thread that calls.
using Callers = std::vector<std::unique_ptr<Peer>>;

struct Block {
    Usage perCall;
    std::vector<float> latencies; // of the calls of the first caller, in microseconds
};

// Has the first so many callers make so many calls each, all at the same time.
Block Measure(const Meter& meter, const Callers& callers, std::size_t active, const Request& request, int calls);

} // namespace kiv::bench
