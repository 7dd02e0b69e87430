#include "sandbox/Processes.h"

#include "support/Wait.h"
#include "tools/sandbox/Keeper.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <regex>
#include <utility>

namespace kiv::sandbox {

namespace {

struct Pipe {
    Descriptor reading;
    Descriptor writing;
};

Pipe MakePipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        ThrowErrno("pipe2");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

std::string ReadToEnd(const Descriptor& source)
{
    std::string text;
    std::array<char, 4096> part{};
    for (;;) {
        test::WaitUntilReadable("the end of a program's output, which so far is: " + text, source.Get());
        const ssize_t length = read(source.Get(), part.data(), part.size());
        if (length <= 0) {
            return text;
        }
        text.append(part.data(), static_cast<std::size_t>(length));
    }
}

} // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    Close();
    fd_ = other.Release();
    return *this;
}

int Descriptor::Release()
{
    return std::exchange(fd_, -1);
}

void Descriptor::Close()
{
    if (fd_ >= 0) {
        close(Release());
    }
}

Watched::Watched(pid_t pid) : pid_(pid), pidFd_(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)))
{
    if (pidFd_.Get() < 0) {
        ThrowErrno("pidfd_open " + std::to_string(pid));
    }
}

bool Watched::HasEnded() const
{
    pollfd event{pidFd_.Get(), POLLIN, 0};
    return poll(&event, 1, 0) == 1;
}

void Watched::WaitForEnd() const
{
    test::WaitUntilReadable("process " + std::to_string(pid_) + " to end", pidFd_.Get());
}

Child::Child(const std::vector<std::string>& command)
{
    std::vector<std::string> words = command;
    const std::vector<char*> arguments = Arguments(words);
    Pipe input = MakePipe();
    Pipe output = MakePipe();
    Pipe errors = MakePipe();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.reading.Get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.writing.Get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors.writing.Get(), STDERR_FILENO);
    const int error = posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        ThrowErrno(command.front(), error);
    }
    input_ = std::move(input.writing);
    output_ = std::move(output.reading);
    errors_ = std::move(errors.reading);
}

Child::~Child()
{
    if (pid_ != 0) {
        Signal(SIGKILL);
        WaitForEnd();
    }
}

void Child::Write(const std::string& text) const
{
    if (write(input_.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        ThrowErrno("write");
    }
}

void Child::Signal(int number) const
{
    kill(pid_, number);
}

std::string Child::ReadLine()
{
    std::string line;
    char character = 0;
    for (;;) {
        test::WaitUntilReadable("the end of a line of output, which so far is: " + line, output_.Get());
        if (read(output_.Get(), &character, sizeof character) != sizeof character || character == '\n') {
            return line;
        }
        line += character;
    }
}

std::string Child::ReadOutput()
{
    return ReadToEnd(output_);
}

std::string Child::ReadErrors()
{
    // On a busy machine, the leak sanitizer says that it could not stop a thread while it looked for leaks.
    static const std::regex remark("==\\d+==Running thread \\d+ was not suspended\\. False leaks are possible\\.\n");
    return std::regex_replace(ReadToEnd(errors_), remark, "");
}

int Child::WaitForEnd()
{
    return test::WaitForExit("a program to end", std::exchange(pid_, 0));
}

ScratchDirectory::ScratchDirectory()
{
    std::string path = (std::filesystem::temp_directory_path() / "sandbox-test-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) {
        ThrowErrno(path);
    }
    path_ = path;
}

ScratchDirectory::~ScratchDirectory()
{
    std::filesystem::remove_all(path_);
}

} // namespace kiv::sandbox
