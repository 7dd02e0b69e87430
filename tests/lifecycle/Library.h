#pragma once

#include "KivServiceInterface.h"

#include <dlfcn.h>

#include <stdexcept>

namespace kiv::test {

// A library that is loaded at run time, and unloaded with the object.
class Library {
public:
    explicit Library(const char* file = KIV_LIBRARY) : handle_(dlopen(file, RTLD_NOW | RTLD_LOCAL))
    {
        if (handle_ == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }
    ~Library() { dlclose(handle_); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    template <typename T>
    T* Symbol(const char* name) const
    {
        return reinterpret_cast<T*>(dlsym(handle_, name));
    }

    CNSGdbus* Client() const { return *Symbol<CNSGdbus*>("_ZN8CNSGdbus11m_pInstanceE"); }
    int Stop(int type) const { return Symbol<int(int)>("StopNetworkSpeaker")(type); }
    int DestroyMonitor() const { return Symbol<int(CNSGdbus*)>("_ZN8CNSGdbus23m_DestroyMessageMonitorEv")(Client()); }
    int Subscribe(NamEventCallback callback) const
    {
        return Symbol<int(const char*, NamEventCallback)>("SubscribeNamServiceCallback")(
            "a name that takes memory of its own", callback);
    }

private:
    void* handle_;
};

} // namespace kiv::test
