#pragma once

#include "bench/peers/Peer.h"

#include <sys/types.h>

#include <memory>
#include <valarray>
#include <vector>

namespace kiv::bench {

// The measured figures: the time that has passed and that this process, the bus daemon and the server have used, in
// nanoseconds, and the context switches of this process.
inline constexpr const char* kFigures[] = {"wall", "user", "system", "daemon", "server", "switches"};
using Usage = std::valarray<double>;

// Reads the figures of this process, and of these two.
class Meter {
public:
    Meter(pid_t daemon, pid_t server) : daemon_(daemon), server_(server) {}

    Usage Read() const;

private:
    pid_t daemon_;
    pid_t server_;
};

// One peer for each thread that calls.
using Callers = std::vector<std::unique_ptr<Peer>>;

struct Block {
    Usage perCall;
    std::vector<float> latencies; // of the calls of the first caller, in microseconds
};

// Makes the first active callers make this number of calls each, all at the same time.
Block Measure(const Meter& meter, const Callers& callers, std::size_t active, const Request& request, int calls);

} // namespace kiv::bench
