#include "tools/sandbox/NamedSandboxes.h"

#include "tools/sandbox/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <glib.h>
#include <nlohmann/json.hpp>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace kiv::sandbox {

// The file of an entry has these members. Its name is that of the sandbox.
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(NamedSandbox, pid, command, environment)

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestName = 64;

// Returns the folder with the entries of this user's sandboxes.
fs::path FolderPath()
{
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    std::error_code notThere;
    if (runtime != nullptr && fs::is_directory(runtime, notThere)) {
        return fs::path(runtime) / "kiv-sandbox";
    }
    return TemporaryFolder() / fmt::format("kiv-sandbox-{}", geteuid());
}

// The folder of the entries. Entries do not change while an object of this class locks the folder.
class LockedFolder {
public:
    LockedFolder() : path_(FolderPath())
    {
        if (mkdir(path_.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
            ThrowErrno(path_.string());
        }
        fd_ = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        struct stat status {};
        if (fd_ < 0 || fstat(fd_, &status) != 0) {
            ThrowErrno(path_.string());
        }
        // The folder may be in one that all users can write to, where another user can have made it first.
        if (status.st_uid != geteuid() || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
            close(fd_);
            throw std::runtime_error(
                fmt::format("{} must belong to you, and be closed to all others (mode 0700)", path_.string()));
        }
        flock(fd_, LOCK_EX);
    }
    ~LockedFolder() { close(fd_); }
    LockedFolder(const LockedFolder&) = delete;
    LockedFolder& operator=(const LockedFolder&) = delete;

    const fs::path& Path() const { return path_; }

    // Opens an entry. Returns a descriptor, or a negative number.
    int Open(const std::string& name, int flags) const
    {
        return openat(fd_, name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    }

    void Remove(const std::string& name) const { unlinkat(fd_, name.c_str(), 0); }

private:
    fs::path path_;
    int fd_;
};

std::string ReadAll(int fd)
{
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t length = 0; (length = read(fd, part.data(), part.size())) > 0;) {
        text.append(part.data(), static_cast<std::size_t>(length));
    }
    return text;
}

// Reads the entry of a sandbox. Removes the entry of a sandbox that has ended.
std::optional<NamedSandbox> ReadEntry(const LockedFolder& folder, const std::string& name)
{
    const int entry = folder.Open(name, O_RDONLY);
    if (entry < 0) {
        return std::nullopt;
    }
    const bool hasEnded = flock(entry, LOCK_SH | LOCK_NB) == 0;
    const std::string text = hasEnded ? "" : ReadAll(entry);
    close(entry);
    if (hasEnded) {
        folder.Remove(name);
        return std::nullopt;
    }
    auto sandbox = nlohmann::json::parse(text).get<NamedSandbox>();
    sandbox.name = name;
    return sandbox;
}

} // namespace

std::string WhyNoName(const std::string& text)
{
    const auto isAllowed = [](char character) {
        return g_ascii_isalnum(character) != FALSE || std::string_view("-_.").find(character) != std::string::npos;
    };
    if (!text.empty() && text.size() <= kLongestName && text.front() != '.' && std::ranges::all_of(text, isAllowed)) {
        return "";
    }
    return fmt::format(
        "must be a name of up to {} letters, digits, '-', '_' and '.' that does not begin with '.', got \"{}\"",
        kLongestName, text);
}

SandboxName::SandboxName(const NamedSandbox& sandbox) : name_(sandbox.name)
{
    const LockedFolder folder;
    if (const auto other = ReadEntry(folder, name_)) {
        throw std::runtime_error(fmt::format(
            "--name must not be the name of a running sandbox, got \"{}\", which process {} has", name_, other->pid));
    }
    entry_ = folder.Open(name_, O_WRONLY | O_CREAT | O_EXCL);
    const std::string text = nlohmann::json(sandbox).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    if (entry_ < 0 || flock(entry_, LOCK_EX | LOCK_NB) != 0 ||
        write(entry_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        ThrowErrno((folder.Path() / name_).string());
    }
}

SandboxName::~SandboxName()
{
    try {
        LockedFolder().Remove(name_);
    } catch (const std::runtime_error&) {
        // The lock on the entry is released now, so the next look removes the entry.
    }
    close(entry_);
}

std::vector<NamedSandbox> NamedSandboxes()
{
    const LockedFolder folder;
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder.Path())) {
        names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    std::vector<NamedSandbox> sandboxes;
    for (const std::string& name : names) {
        if (auto sandbox = ReadEntry(folder, name)) {
            sandboxes.push_back(std::move(*sandbox));
        }
    }
    return sandboxes;
}

NamedSandbox FindSandbox(const std::string& name)
{
    const LockedFolder folder;
    auto sandbox = ReadEntry(folder, name);
    if (!sandbox) {
        throw std::runtime_error(fmt::format(
            "--join must be the name of a running sandbox, got \"{}\"; kiv-sandbox --list prints those in {}", name,
            folder.Path().string()));
    }
    return std::move(*sandbox);
}

} // namespace kiv::sandbox
