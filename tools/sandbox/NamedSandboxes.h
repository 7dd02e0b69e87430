#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace kiv::sandbox {

// A running sandbox, as other processes of the same user see it.
struct NamedSandbox {
    std::string name;
    pid_t pid;
    std::vector<std::string> command;
    std::map<std::string, std::string> environment; // the variables that the sandbox sets for its command
};

// Returns why a text cannot be the name of a sandbox. Empty if it can.
std::string WhyNoName(const std::string& text);

// Publishes the name of this process's sandbox while the object lives.
//
// The entry is a file in a folder that only its user can enter. This process holds a lock on the file, which the kernel
// releases however the process ends. The next process that looks removes an entry that is not locked. A process that is
// forked while the object lives holds the lock, too. Failures are thrown as std::runtime_error.
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

// Returns the running sandboxes that have a name, in the order of their names.
std::vector<NamedSandbox> NamedSandboxes();

// Returns the sandbox of this name. Throws std::runtime_error if none runs.
NamedSandbox FindSandbox(const std::string& name);

} // namespace kiv::sandbox
