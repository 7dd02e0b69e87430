#include "link/LibraryPin.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <optional>

namespace kiv::link {

namespace {

std::atomic<bool> g_isUsed = false;
std::atomic<bool> g_isExiting = false;
// Calls of dlopen() that are on their way, and the process that began the last one: a child of fork() inherits their
// number, but not the threads that make them.
std::atomic<int> g_opening = 0;
std::atomic<pid_t> g_openingPid = 0;

// The process may exit while a thread is inside dlopen(). If the loader has run the library's destructors by then, that
// dlopen() runs the constructors once more, so the exit waits for it. It is over in microseconds, unless the thread
// that exits holds the loader's lock.
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

// The C library releases thread-specific data after the thread's body has returned. dlclose() is the destructor
// itself, and not called by one, because it must not return into code that it has just unmapped.
std::optional<pthread_key_t> ThreadEndKey()
{
    static const std::optional<pthread_key_t> key = []() -> std::optional<pthread_key_t> {
        pthread_key_t created = 0;
        auto closeAtThreadEnd = reinterpret_cast<void (*)()>(&dlclose);
        const int failure = pthread_key_create(&created, reinterpret_cast<void (*)(void*)>(closeAtThreadEnd));
        return failure == 0 ? std::optional(created) : std::nullopt;
    }();
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
    // If there is no key, the library stays mapped for good.
    if (const auto key = ThreadEndKey(); pin != nullptr && key) {
        pthread_setspecific(*key, pin);
    }
}

// exit() destroys static objects in the reverse order of their making, and then runs the loader's own end, which was
// registered before main(). So the mark is destroyed before the destructor functions of libraries run. At dlclose(), it
// is destroyed after those of this library, which ask for WhichEnd().
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
    if (const auto key = ThreadEndKey()) {
        pthread_key_delete(*key);
    }
}

} // namespace kiv::link
