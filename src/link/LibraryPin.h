#pragma once

namespace kiv::link {

// Takes a pin: a reference of the loader's to this library, which keeps dlclose() from unmapping the code of a running
// thread. The pin is taken before the thread is created. Returns null while the process exits, and where the code is
// part of the program itself, which is never unmapped.
void* PinLibrary();

// Gives a pin back. The pinned thread must not call this, because it may unmap the thread's code.
void UnpinLibrary(void* pin);

// Gives the calling thread's pin back at the thread's end, when it no longer runs code of the library.
void UnpinLibraryAtThreadEnd(void* pin);

// WhichEnd() tells the end of the process from the unloading of the library, after the first call of WatchForExit().
// GetProxy() makes that call, before there is anything to release.
void WatchForExit();
enum class End { kNeverUsed, kOfProcess, kOfLibrary };
End WhichEnd();

// Called at unload only.
void DeleteThreadEndKey();

} // namespace kiv::link
