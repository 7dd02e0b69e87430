#pragma once

#include <memory>
#include <string>
#include <thread>

namespace kiv::sandbox {

class Keeper;

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
    void PassOn(int reader) const;

    std::unique_ptr<Keeper> keeper_;
    std::string socketName_;
    int stderr_ = -1; // this process's own
    int pipe_ = -1;
    std::thread passing_;
};

/// Replaces this process by the page of a recording.
[[noreturn]] void ShowRecording(const std::string& file);

} // namespace kiv::sandbox
