#pragma once

namespace kiv::sandbox {

// Runs "kiv-sandbox control", which changes what the simulator does, from within the sandbox. Returns the exit code.
int ControlMain(int argc, char** argv);

} // namespace kiv::sandbox
