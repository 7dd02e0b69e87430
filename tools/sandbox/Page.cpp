#include "Page.h"

#include "Keeper.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

namespace kiv::sandbox {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> PageCommand()
{
    const fs::path self = fs::read_symlink("/proc/self/exe");
    // In a build tree, it is beside this program.
    for (const fs::path& folder : {self.parent_path() / KIV_PAGE_FOLDER, self.parent_path()}) {
        const fs::path program = folder / "kiv-sandbox-page";
        if (access(program.c_str(), X_OK) == 0) {
            return {program.lexically_normal(), self};
        }
    }
    throw std::runtime_error("there is no page, because kiv-sandbox-page was not found. Install it (in Debian, "
                             "kiv-tools-page), or build it, which takes libsoup-3.0-dev");
}

/// Sends to a socket in the abstract namespace, without waiting.
void SendLine(int socket, const std::string& name, std::string_view line)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(name.begin(), name.end(), address.sun_path + 1);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    sendto(
        socket, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
        size);
}

} // namespace

Page::Page() : keeper_(std::make_unique<Keeper>(PageCommand(), Keeper::Place::Background))
{
    keeper_->Start();
    const std::optional<std::string> name = keeper_->ReadLine();
    if (!name) {
        throw std::runtime_error("the page cannot be shown");
    }
    socketName_ = *name;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
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
        passing_ = std::thread([this] { PassOn(pipe_); });
    }
}

void Page::PassOn(int reader) const
{
    // A stderr that nobody reads is no reason to end this process.
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::array<char, 4096> buffer{};
    std::string line;
    ssize_t length = 0;
    while ((length = read(reader, buffer.data(), buffer.size())) > 0 || (length < 0 && errno == EINTR)) {
        const std::string_view part(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        for (std::string_view rest = part; !rest.empty();) {
            const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
            if (written < 0 && errno != EINTR) {
                break;
            }
            rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
        }
        for (const char character : part) {
            if (character == '\n' || line.size() == buffer.size()) {
                SendLine(socket, socketName_, line);
                line.clear();
            }
            if (character != '\n') {
                line += character;
            }
        }
    }
    close(socket);
}

void ShowRecording(const std::string& file)
{
    std::vector<std::string> words = PageCommand();
    words.push_back(file);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    throw std::system_error(errno, std::generic_category(), words.front());
}

} // namespace kiv::sandbox
