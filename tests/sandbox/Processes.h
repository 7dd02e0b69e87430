#pragma once

#include "tools/sandbox/Files.h"

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kiv::sandbox {

// Owns a file descriptor.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { Close(); }
    Descriptor(Descriptor&& other) noexcept : fd_(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;

    int Get() const { return fd_; }
    int Release();
    void Close();

private:
    int fd_;
};

// Watches a process that runs when the object is made.
class Watched {
public:
    explicit Watched(pid_t pid);

    pid_t Pid() const { return pid_; }
    bool HasEnded() const;
    void WaitForEnd() const;

private:
    pid_t pid_;
    Descriptor pidFd_;
};

// A child process whose standard streams the test reads and writes. It is killed if it still runs when the object is
// destroyed.
class Child {
public:
    explicit Child(const std::vector<std::string>& command);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t Pid() const { return pid_; }
    void Write(const std::string& text) const;
    void CloseInput() { input_.Close(); }
    void Signal(int number) const;
    std::string ReadLine(); // from stdout
    std::string ReadOutput();
    std::string ReadErrors(); // all of stderr: returns when no process holds it any more
    int WaitForEnd();         // wait status

private:
    Descriptor input_;
    Descriptor output_;
    Descriptor errors_;
    pid_t pid_ = 0;
};

// A directory that is removed with the object.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace kiv::sandbox
