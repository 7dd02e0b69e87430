// usage: dirty-pages LIBRARY
//
// Loads a library with all its symbols bound, and prints how many of its pages then belong to this process alone.
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

namespace {

// The bits of an entry of /proc/PID/pagemap.
constexpr uint64_t kPresentOrSwapped = uint64_t{3} << 62;
constexpr uint64_t kOfFile = uint64_t{1} << 61;

struct Count {
    ElfW(Addr) library;
    int pagemap;
    int dirty;
};

bool IsDirty(int pagemap, uintptr_t page)
{
    uint64_t entry = 0;
    const auto size = static_cast<ssize_t>(sizeof entry);
    return pread(pagemap, &entry, sizeof entry, static_cast<off_t>(page) * size) == size &&
           (entry & kPresentOrSwapped) != 0 && (entry & kOfFile) == 0;
}

int CountPages(dl_phdr_info* object, size_t /*size*/, void* argument)
{
    auto& count = *static_cast<Count*>(argument);
    if (object->dlpi_addr != count.library) {
        return 0;
    }
    const auto pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto& segment = object->dlpi_phdr[i];
        const uintptr_t start = object->dlpi_addr + segment.p_vaddr;
        for (uintptr_t page = start / pageSize; segment.p_type == PT_LOAD && page * pageSize < start + segment.p_memsz;
             ++page) {
            count.dirty += IsDirty(count.pagemap, page);
        }
    }
    return 1;
}

} // namespace

int main(int argc, char* argv[])
{
    void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW) : nullptr;
    link_map* map = nullptr;
    if (library == nullptr || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) {
        std::fprintf(stderr, "%s\n", argc != 2 ? "usage: dirty-pages LIBRARY" : dlerror());
        return 1;
    }
    Count count{map->l_addr, open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC), 0};
    if (count.pagemap < 0) {
        std::perror("/proc/self/pagemap");
        return 1;
    }
    dl_iterate_phdr(CountPages, &count);
    std::printf("%d\n", count.dirty);
    return 0;
}
