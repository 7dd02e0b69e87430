#pragma once

#include "tools/sandbox/Keeper.h"

#include <string>
#include <thread>
#include <vector>

namespace kiv::sandbox {

// The live page of the sandbox whose bus the environment names. Another program serves it.
//
// A process that is forked between construction and Follow() has a pipe as its stderr. The lines from the pipe are
// printed on this process's stderr and sent to the page. The page misses a line if it is too slow. Failures are thrown
// as std::runtime_error.
class Page {
public:
    Page();
    // Returns when all processes that have the pipe have ended.
    ~Page();
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;

    void Follow();

private:
    void PassOn() const;

    Keeper keeper_;
    std::string socketName_;
    int stderr_ = -1; // the stderr of this process
    int pipe_ = -1;
    std::thread passing_;
};

// Returns the command that serves the page of this process's bus. With a recording as its last word, it serves the page
// of that recording.
std::vector<std::string> PageCommand();

} // namespace kiv::sandbox
