#pragma once

#include "tools/kivctl/Command.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <optional>
#include <string>

namespace kiv::ctl {

struct Choice {
    std::string name;
    Action action;
    Asks asks = Asks::kNobody;
};

// The values that the command line sets.
struct Request {
    Choice choice;
    bool json = false;
    bool verbose = false;
    bool timing = false;
    std::optional<std::chrono::milliseconds> timeout;
};

// Declares every command and option. Parsing writes the values into the request.
void Declare(CLI::App& app, Request& request);

} // namespace kiv::ctl
