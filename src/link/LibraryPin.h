#pragma once

namespace kiv::link {

/*
 * Keeps the library mapped for a thread of its own, so that dlclose() never takes the code from under it. Whoever
 * creates the thread takes a pin before. Null is no pin: where the code is part of the program, and while the process
 * exits.
 */
void* PinLibrary();

// Not by the thread itself, whose code this may unmap.
void UnpinLibrary(void* pin);

// By the thread itself: the pin is given back when it has left the library's code for good.
void UnpinLibraryAtThreadEnd(void* pin);

} // namespace kiv::link
