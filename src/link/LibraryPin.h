#pragma once

namespace kiv::link {

// Keeps the library mapped for a thread of its own, so that dlclose() never takes the code from under it.

// By the starter, before the thread is created: takes the reference.
void PinLibrary();
// By the starter, if the thread could not be created.
void UnpinLibrary();
// By the thread, first of all: gives the reference back when the thread has left the library's code for good.
void UnpinLibraryAtThreadEnd();

} // namespace kiv::link
