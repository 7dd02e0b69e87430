#pragma once

#include <utility>

namespace kiv::link {

// An object that no static destructor touches: when the process exits, threads of the host or of the library may
// still be using it. What it holds is given back at unload instead, by a function that such threads survive.
template <typename T>
union NeverDestroyed {
    template <typename... Args>
    constexpr explicit NeverDestroyed(Args&&... args) : object_(std::forward<Args>(args)...)
    {
    }
    ~NeverDestroyed() {} // NOLINT(modernize-use-equals-default): that would be deleted

    T& operator*() { return object_; }
    T* operator->() { return &object_; }

private:
    T object_;
};

// Calls a function when the library is unloaded or the process exits.
template <auto Function>
struct AtUnload {
    ~AtUnload() { Function(); }
};

} // namespace kiv::link
