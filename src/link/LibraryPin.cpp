#include "link/LibraryPin.h"

#include "link/ThreadKey.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>

namespace kiv::link {

namespace {

std::atomic<bool> g_isUsed = false;
std::atomic<bool> g_isExiting = false;
// The number of dlopen() calls under way, and the process that began the last one. A child of fork() inherits the
// number, but not the threads that make the calls.
std::atomic<int> g_opening = 0;
std::atomic<pid_t> g_openingPid = 0;

// The process may exit while a thread is inside dlopen(). If the loader has run the library's destructors by then, that
// dlopen() runs the constructors once more, so the exit waits for it. The wait takes microseconds as a rule. It is
// limited, because the exiting thread may itself hold the loader's lock, for which dlopen() waits.
constexpr int kPatience = 100;
constexpr useconds_t kPauseUs = 1000;

struct ExitMark {
    ~ExitMark()
    {
        g_isExiting = true;
        for (int turn = 0; g_opening != 0 && g_openingPid == getpid() && turn < kPatience; ++turn) {
            usleep(kPauseUs);
        }
    }
};

class Opening {
public:
    Opening()
    {
        g_openingPid = getpid();
        ++g_opening;
    }
    ~Opening() { --g_opening; }
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;
};

// Returns the key of the thread-specific data that holds a thread's pin. The C library calls the key's destructor after
// the thread's body has returned. The destructor is dlclose() itself: a function of this library would call dlclose()
// and then return into code that is unmapped.
const ThreadKey& ThreadEndKey()
{
    static const ThreadKey key(reinterpret_cast<void (*)(void*)>(reinterpret_cast<void (*)()>(&dlclose)));
    return key;
}

} // namespace

void* PinLibrary()
{
    const Opening opening;
    Dl_info self{};
    if (g_isExiting || dladdr(reinterpret_cast<void*>(&PinLibrary), &self) == 0) {
        return nullptr;
    }
    return dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD);
}

void UnpinLibrary(void* pin)
{
    if (pin != nullptr) {
        dlclose(pin);
    }
}

void UnpinLibraryAtThreadEnd(void* pin)
{
    // Without a key, the pin is never given back, and the library stays mapped.
    if (pin != nullptr) {
        ThreadEndKey().Keep(pin);
    }
}

// exit() destroys static objects in the reverse order of their construction. Then it runs the loader's handler, which
// was registered before main() and calls the destructor functions of libraries. So at exit() the mark is destroyed
// before Unload() asks for WhichEnd(), and at dlclose() after that.
void WatchForExit()
{
    static const ExitMark mark;
    g_isUsed = true;
}

End WhichEnd()
{
    if (!g_isUsed) {
        return End::kNeverUsed;
    }
    return g_isExiting ? End::kOfProcess : End::kOfLibrary;
}

void DeleteThreadEndKey()
{
    ThreadEndKey().Delete();
}

} // namespace kiv::link
