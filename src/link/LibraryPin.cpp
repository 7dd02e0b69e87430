#include "link/LibraryPin.h"

#include "link/Lifetime.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>

namespace kiv::link {

namespace {

// The C library releases thread-specific data after the thread's body has returned. dlclose() is the destructor
// itself, and not called by one, because it must not return into code that it has just unmapped.
pthread_key_t ThreadEndKey()
{
    static const pthread_key_t key = [] {
        pthread_key_t created = 0;
        auto closeAtThreadEnd = reinterpret_cast<void (*)()>(&dlclose);
        pthread_key_create(&created, reinterpret_cast<void (*)(void*)>(closeAtThreadEnd));
        return created;
    }();
    return key;
}

void DeleteThreadEndKey()
{
    pthread_key_delete(ThreadEndKey());
}

const AtUnload<DeleteThreadEndKey> g_keyAtUnload;

// A handle of the library itself, which is the same at each call; null where the code is part of the program.
void* OpenSelf()
{
    Dl_info self{};
    return dladdr(reinterpret_cast<void*>(&PinLibrary), &self) != 0 ? dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD)
                                                                    : nullptr;
}

// Threads that a reference was taken for and that have not begun.
std::atomic<int> g_waiting;

} // namespace

void PinLibrary()
{
    OpenSelf();
    ++g_waiting;
}

void UnpinLibrary()
{
    --g_waiting;
    void* self = OpenSelf();
    if (self != nullptr) {
        dlclose(self);
        dlclose(self);
    }
}

void UnpinLibraryAtThreadEnd()
{
    if (g_waiting == 0) {
        return; // a thread of the host's own
    }
    --g_waiting;
    void* self = OpenSelf();
    if (self != nullptr) {
        dlclose(self);
        pthread_setspecific(ThreadEndKey(), self);
    }
}

} // namespace kiv::link
