#pragma once

#include <pthread.h>

namespace kiv::link {

// A key of thread-specific data. The C library calls the destructor with a thread's data after the thread's body. If
// the process has no free key, nothing is kept.
class ThreadKey {
public:
    explicit ThreadKey(void (*destructor)(void*)) : isMade_(pthread_key_create(&key_, destructor) == 0) {}

    void Keep(void* data) const
    {
        if (isMade_) {
            pthread_setspecific(key_, data);
        }
    }

    // Called at unload only.
    void Delete() const
    {
        if (isMade_) {
            pthread_key_delete(key_);
        }
    }

private:
    pthread_key_t key_ = 0;
    const bool isMade_;
};

} // namespace kiv::link
