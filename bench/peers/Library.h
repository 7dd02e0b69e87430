#pragma once

#include <string>

namespace kiv::bench {

// The library, from a file, so that two builds of it can be compared in one process. It stays loaded.
class LoadedLibrary {
public:
    explicit LoadedLibrary(const std::string& file);

    template <typename Pointer>
    Pointer Function(const char* name) const
    {
        return reinterpret_cast<Pointer>(Find(name));
    }

private:
    void* Find(const char* name) const;

    void* handle_;
};

} // namespace kiv::bench
