#include "tools/sandbox/Page.h"

#include "tools/sandbox/Files.h"
#include "tools/sandbox/ScenarioFiles.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>

namespace kiv::sandbox {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestLine = 4096;

} // namespace

std::vector<std::string> PageCommand()
{
    const fs::path self = fs::read_symlink("/proc/self/exe");
    // In a build tree, the program is beside this one.
    for (const fs::path& folder : {self.parent_path() / KIV_PAGE_FOLDER, self.parent_path()}) {
        const fs::path program = folder / "kiv-sandbox-page";
        if (access(program.c_str(), X_OK) == 0) {
            return {program.lexically_normal(), self, ListScenarios()};
        }
    }
    throw std::runtime_error("there is no page, because kiv-sandbox-page was not found; install kiv-tools-page, or "
                             "build it with libsoup-3.0-dev");
}

Page::Page() : keeper_(PageCommand(), Keeper::Place::kBackground)
{
    keeper_.Start();
    const std::optional<std::string> name = keeper_.ReadLine();
    if (!name) {
        throw std::runtime_error("the page cannot be shown");
    }
    socketName_ = *name;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        ThrowErrno("pipe");
    }
    pipe_ = ends[0];
    stderr_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
}

Page::~Page()
{
    Follow();
    passing_.join();
    close(pipe_);
}

void Page::Follow()
{
    if (!passing_.joinable()) {
        dup2(stderr_, STDERR_FILENO);
        close(stderr_);
        passing_ = std::thread([this] { PassOn(); });
    }
}

void Page::PassOn() const
{
    // SIGPIPE would end this process if nobody reads its stderr.
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // The name of an abstract socket begins with a null character.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(socketName_.begin(), socketName_.end(), address.sun_path + 1);
    const auto addressSize = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + socketName_.size());
    std::string rest;
    std::array<char, kLongestLine> buffer{};
    ssize_t size = 0;
    while ((size = read(pipe_, buffer.data(), buffer.size())) > 0 || (size < 0 && errno == EINTR)) {
        const auto length = static_cast<std::size_t>(std::max<ssize_t>(size, 0));
        std::fwrite(buffer.data(), 1, length, stderr);
        rest.append(buffer.data(), length);
        for (std::size_t end = 0; (end = std::min(rest.find('\n'), kLongestLine)) < rest.size();) {
            sendto(
                socket, rest.data(), end, MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
                addressSize);
            rest.erase(0, end + (rest[end] == '\n' ? 1 : 0));
        }
    }
    close(socket);
}

} // namespace kiv::sandbox
