#pragma once

#include <string>

namespace kiv::bench {

// Loads the library from a file, so that its loading can be measured. The library stays loaded.
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
