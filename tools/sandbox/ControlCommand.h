#pragma once

namespace kiv::sandbox {

/// "kiv-sandbox control": changes what the simulator does, from within the sandbox. Returns the exit code.
int ControlMain(int argc, char** argv);

} // namespace kiv::sandbox
