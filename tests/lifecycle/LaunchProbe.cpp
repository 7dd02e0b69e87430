#include "src/link/Launch.h"

// Exports a function that starts the library's launch thread.
extern "C" __attribute__((visibility("default"))) bool PreCheck()
{
    return kiv::link::s_pre_checking() != nullptr;
}
