// Imitates a busy machine: each thread of the process begins half a second after it was created.

#include <dlfcn.h>
#include <pthread.h>

#include <chrono>
#include <memory>
#include <thread>

namespace {

struct Body {
    void* (*run)(void*);
    void* argument;
};

void* RunLate(void* argument)
{
    const std::unique_ptr<Body> body(static_cast<Body*>(argument));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    return body->run(body->argument);
}

} // namespace

extern "C" int
pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) noexcept
{
    static const auto create = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    auto body = std::make_unique<Body>(Body{run, argument});
    const int failure = create(thread, attributes, RunLate, body.get());
    if (failure == 0) {
        body.release();
    }
    return failure;
}
