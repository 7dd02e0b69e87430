#pragma once

#include "Keeper.h"

#include <string>
#include <thread>
#include <vector>

namespace kiv::sandbox {

/**
 * The live page of the sandbox whose bus the environment names, served by a program of its own.
 *
 * Processes that are forked off between construction and Follow() have a pipe as their stderr. Its lines are passed on
 * to this process's stderr and to the page, which misses those that it is too slow for. Failures are reported as
 * std::runtime_error.
 */
class Page {
public:
    Page();
    /// Returns when whatever has the pipe has ended.
    ~Page();
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;

    void Follow();

private:
    void PassOn() const;

    Keeper keeper_;
    std::string socketName_;
    int stderr_ = -1; // this process's own
    int pipe_ = -1;
    std::thread passing_;
};

/// The command that serves the page of this process's bus, or that of a recording which is added to it.
std::vector<std::string> PageCommand();

} // namespace kiv::sandbox
