#pragma once

#include <memory>
#include <utility>

namespace kiv::link {

// Holds an object that no static destructor destroys, because threads of the host and of the library may still use it
// while the process exits. Unload.cpp destroys it when the library is unloaded.
template <typename T>
union NeverDestroyed {
    template <typename... Args>
    constexpr explicit NeverDestroyed(Args&&... args) : object_(std::forward<Args>(args)...)
    {
    }
    ~NeverDestroyed() {} // NOLINT(modernize-use-equals-default): that would be deleted

    T& operator*() { return object_; }
    T* operator->() { return &object_; }

    void Destroy() { std::destroy_at(&object_); }

private:
    T object_;
};

} // namespace kiv::link
