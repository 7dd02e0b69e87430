#pragma once

#include "sandbox/Processes.h"

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kiv::sandbox {

std::vector<std::string> SandboxCommand(std::vector<std::string> words);

struct Outcome {
    int exitCode;
    std::string output;
    std::string errors;
};

// Runs a sandbox with these arguments to its end.
Outcome RunSandbox(const std::vector<std::string>& words);

// Returns a script in which "kivctl" and "control" run the tested programs.
std::string Script(const std::string& script);
// Runs such a script in a sandbox with these options.
Outcome RunScript(const std::string& script, std::vector<std::string> options = {});

// A sandbox whose command prints its address and then runs a script. The script can wait for the test with "read".
class Sandbox {
public:
    explicit Sandbox(const std::string& script, std::vector<std::string> options = {});

    Child& Process() { return child_; }
    const std::string& Address() const { return address_; }
    std::filesystem::path Directory() const;
    pid_t ReadPid() { return std::stoi(child_.ReadLine()); }

private:
    Child child_;
    std::string address_;
};

} // namespace kiv::sandbox
