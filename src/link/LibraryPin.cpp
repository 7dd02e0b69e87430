#include "link/LibraryPin.h"

#include "link/Lifetime.h"

#include <dlfcn.h>
#include <pthread.h>

#include <mutex>

namespace kiv::link {

namespace {

// A dlopen() while the process exits would run the constructors of the library, and of those it needs, once more.
std::mutex g_opening;
bool g_exiting;

void ForbidOpening()
{
    const std::lock_guard lock(g_opening);
    g_exiting = true;
}

const AtUnload<ForbidOpening> g_forbidAtUnload;

// In a program that is linked with the library, the end of static objects comes too late by a moment; what is
// registered after the program's start comes in time.
void ForbidOpeningAtExit()
{
    static const AtUnload<ForbidOpening> atUnload;
}

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

} // namespace

void* PinLibrary()
{
    ForbidOpeningAtExit();
    const std::lock_guard lock(g_opening);
    Dl_info self{};
    if (g_exiting || dladdr(reinterpret_cast<void*>(&PinLibrary), &self) == 0) {
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
    if (pin != nullptr) {
        pthread_setspecific(ThreadEndKey(), pin);
    }
}

} // namespace kiv::link
