#include "link/Launch.h"

// Makes a thread of the library's reachable that none of its exported functions starts yet.
extern "C" __attribute__((visibility("default"))) bool PreCheck()
{
    return kiv::link::s_pre_checking() != nullptr;
}
