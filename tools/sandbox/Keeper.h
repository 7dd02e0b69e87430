#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kiv::sandbox {

// Returns the words as exec functions take them. The pointers are valid as long as the words.
std::vector<char*> Arguments(std::vector<std::string>& words);

// Runs a program, and removes everything of it in the end. When the object is destroyed, or this process dies in
// whatever way, the program and everything that it started are ended (SIGTERM, then SIGKILL), and a directory is
// removed.
//
// A separate process does this. It adopts the orphans of the program's descendants, so that no daemon escapes. Failures
// are thrown as std::runtime_error.
class Keeper {
public:
    enum class Place {
        kForeground, // shares this process's terminal and standard streams
        kBackground, // in a session of its own, without input; writes to stderr only, and lines on kReportFd
    };
    // ReadLine() returns what a program in the background writes to this descriptor.
    static constexpr int kReportFd = 3;

    Keeper(const std::vector<std::string>& command, Place place, const std::filesystem::path& directory = {});
    ~Keeper();
    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;

    // Starts the program. It can be started again after it has ended.
    void Start();
    pid_t Pid() const { return pid_; } // of the program; 0 before its start and once its end has been read
    void Signal(int signalNumber) { SendOrder(signalNumber); }
    // Returns the next line from the program, or nothing when it has ended. Throws std::system_error if it cannot be
    // executed.
    std::optional<std::string> ReadLine();
    // Returns the wait status of the program. Throws as ReadLine() does.
    int WaitForEnd();
    // Returns a descriptor that is readable when the program has written a line or has ended.
    int Fd() const { return socket_; }

private:
    std::string ReadRawLine() const;
    void SendOrder(int order) const;

    int socket_ = -1;
    pid_t pid_ = 0;
    int status_ = 0;
};

} // namespace kiv::sandbox
