#pragma once

namespace kiv::link {

/*
 * Keeps the library mapped while one of its threads runs, so that dlclose() never takes the code from under it. Whoever
 * creates the thread takes a pin before. Null is no pin: where the code is part of the program, and while the process
 * exits.
 */
void* PinLibrary();

// Not by the thread itself, whose code this may unmap.
void UnpinLibrary(void* pin);

// By the thread itself: the pin is given back when it has left the library's code for good.
void UnpinLibraryAtThreadEnd(void* pin);

// The two ends that the library can see: of the process, and its own. They can be told apart from the first call of
// WatchForExit() on. GetProxy() begins with it, before there is anything to release.
void WatchForExit();
enum class End { kNeverUsed, kOfProcess, kOfLibrary };
End WhichEnd();

// At unload only.
void DeleteThreadEndKey();

} // namespace kiv::link
