#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace kiv::sandbox {

/// A running sandbox as others of the same user find it.
struct NamedSandbox {
    std::string name;
    pid_t pid;
    std::vector<std::string> command;
    std::map<std::string, std::string> environment; ///< what the sandbox sets for its command
};

/// Returns the reason for which a text cannot be the name of a sandbox; empty if it can.
std::string WhyNoName(const std::string& text);

/**
 * Makes this process's sandbox known by its name, for as long as the object lives.
 *
 * The entry is a file in a folder that only its user can enter. This process holds a lock on it, which the kernel
 * releases however the process ends; whoever looks next removes an entry that nobody holds. A process that is forked
 * off meanwhile would hold it too. Failures are reported as std::runtime_error.
 */
class SandboxName {
public:
    explicit SandboxName(const NamedSandbox& sandbox);
    ~SandboxName();
    SandboxName(const SandboxName&) = delete;
    SandboxName& operator=(const SandboxName&) = delete;

private:
    std::string name_;
    int entry_ = -1;
};

/// The running sandboxes that have a name, in the order of their names.
std::vector<NamedSandbox> NamedSandboxes();

/// Throws std::runtime_error if no sandbox of this name runs.
NamedSandbox FindSandbox(const std::string& name);

} // namespace kiv::sandbox
