#include "tools/sandbox/Keeper.h"

#include "tools/sandbox/Files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace kiv::sandbox {

namespace {

// The time that a program has to end by itself after SIGTERM.
constexpr int kGraceMilliseconds = 2000;

// Orders to the keeper are single bytes: this one, or the number of a signal for the program.
constexpr unsigned char kStartOrder = 0;

constexpr std::string_view kStarted = "started ";
constexpr std::string_view kFailed = "failed ";
constexpr std::string_view kEnded = "ended ";

// The work of the keeper process. It runs after fork(), when another thread of the owner may have held any lock, also
// that of the allocator. So nothing here allocates memory, or calls a function that a signal handler may not call.
class KeeperProcess {
public:
    KeeperProcess(char* const* command, Keeper::Place place, char* const* removal)
        : command_(command), inBackground_(place == Keeper::Place::kBackground), removal_(removal)
    {
    }

    [[noreturn]] void Run(int socket)
    {
        SetUp(socket);
        while (ServeOnce()) {
        }
        EndChildren();
        if (removal_ != nullptr) {
            fcntl(owner_, F_SETFD, 0);
            execv(removal_[0], removal_);
        }
        _exit(0);
    }

private:
    void SetUp(int socket)
    {
        prctl(PR_SET_NAME, "kiv-keeper");
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        owner_ = socket;
        if (inBackground_) {
            setsid();
            dup3(socket, Keeper::kReportFd, O_CLOEXEC);
            close_range(Keeper::kReportFd + 1, ~0U, 0);
            owner_ = Keeper::kReportFd;
        }

        sigset_t childSignal;
        sigemptyset(&childSignal);
        sigaddset(&childSignal, SIGCHLD);
        std::signal(SIGCHLD, SIG_DFL);
        childEvents_ = signalfd(-1, &childSignal, SFD_CLOEXEC | SFD_NONBLOCK);
    }

    // Returns false when the owner has ended.
    bool ServeOnce()
    {
        std::array<pollfd, 2> events{{{childEvents_, POLLIN, 0}, {owner_, POLLIN, 0}}};
        poll(events.data(), events.size(), -1);
        if (events[0].revents != 0) {
            DrainChildEvents();
            Reap();
        }
        return events[1].revents == 0 || ObeyOwner();
    }

    bool ObeyOwner()
    {
        unsigned char order = 0;
        if (read(owner_, &order, sizeof order) != sizeof order) {
            return false;
        }
        if (order == kStartOrder) {
            Start();
        } else if (program_ > 0) {
            kill(program_, order);
        }
        return true;
    }

    void Start()
    {
        program_ = fork();
        if (program_ == 0) {
            Execute();
        } else if (program_ < 0) {
            Report(kFailed, errno);
        }
    }

    [[noreturn]] void Execute() const
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (inBackground_) {
            dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
            dup2(STDERR_FILENO, STDOUT_FILENO);
            fcntl(owner_, F_SETFD, 0);
        }
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);

        Report(kStarted, getpid());
        execvp(command_[0], command_);
        Report(kFailed, errno);
        _exit(EXIT_FAILURE);
    }

    void Reap()
    {
        int status = 0;
        for (pid_t pid = 0; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
            if (pid == program_) {
                program_ = 0;
                Report(kEnded, status);
            }
        }
    }

    // Ends all children. Descendants whose parent ends become children of this process, and are ended in turn.
    void EndChildren()
    {
        int signalNumber = SIGTERM;
        for (;;) {
            Reap();
            if (!SignalChildren(signalNumber)) {
                return;
            }
            pollfd event{childEvents_, POLLIN, 0};
            if (poll(&event, 1, kGraceMilliseconds) == 0) {
                signalNumber = SIGKILL;
            }
            DrainChildEvents();
        }
    }

    // Returns false when there are no children. Children that do not fit in the buffer are listed the next time, when
    // others have ended.
    static bool SignalChildren(int signalNumber)
    {
        std::array<char, 4096> list{};
        const int file = open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
        const ssize_t length = read(file, list.data(), list.size());
        close(file);
        const char* position = list.data();
        const char* const end = position + std::max<ssize_t>(length, 0);
        for (pid_t pid = 0; position < end; ++position) {
            // A blank follows each number. A number that the end of the buffer has cut is ignored.
            position = std::from_chars(position, end, pid).ptr;
            if (position < end) {
                kill(pid, signalNumber);
            }
        }
        return length > 0;
    }

    void DrainChildEvents() const
    {
        signalfd_siginfo event{};
        while (read(childEvents_, &event, sizeof event) > 0) {
        }
    }

    void Report(std::string_view what, int value) const
    {
        std::array<char, 32> line{};
        char* end = std::copy(what.begin(), what.end(), line.begin());
        end = std::to_chars(end, line.data() + line.size() - 1, value).ptr;
        *end++ = '\n';
        [[maybe_unused]] const ssize_t written =
            write(owner_, line.data(), static_cast<std::size_t>(end - line.data()));
    }

    char* const* command_;
    bool inBackground_;
    char* const* removal_;
    int owner_ = -1;
    int childEvents_ = -1;
    pid_t program_ = 0;
};

// Reads like read(), but goes on after a signal.
ssize_t ReadSome(int fd, void* buffer, std::size_t size)
{
    ssize_t length = 0;
    do {
        length = read(fd, buffer, size);
    } while (length < 0 && errno == EINTR);
    return length;
}

// Returns the number after a keyword.
std::optional<int> Value(std::string_view line, std::string_view keyword)
{
    if (!line.starts_with(keyword)) {
        return std::nullopt;
    }
    int value = 0;
    std::from_chars(line.data() + keyword.size(), line.data() + line.size(), value);
    return value;
}

void ThrowIfFailed(std::string_view line)
{
    if (const auto error = Value(line, kFailed)) {
        ThrowErrno("cannot execute", *error);
    }
}

} // namespace

std::vector<char*> Arguments(std::vector<std::string>& words)
{
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return arguments;
}

Keeper::Keeper(const std::vector<std::string>& command, Place place, const std::filesystem::path& directory)
{
    std::vector<std::string> commandWords = command;
    std::vector<std::string> removalWords = {"/bin/rm", "-rf", "--", directory.string()};
    const std::vector<char*> commandArguments = Arguments(commandWords);
    const std::vector<char*> removalArguments = Arguments(removalWords);
    KeeperProcess process(commandArguments.data(), place, directory.empty() ? nullptr : removalArguments.data());

    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        ThrowErrno("socketpair");
    }
    // Signals are blocked, so that no signal handler of the owner runs in the keeper.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        // The keeper is a grandchild, so that a program that kills this process with all its children does not kill the
        // keeper.
        const pid_t keeper = fork();
        if (keeper == 0) {
            process.Run(ends[1]);
        }
        _exit(keeper > 0 ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    close(ends[1]);
    socket_ = ends[0];
    if (child < 0) {
        close(socket_);
        ThrowErrno("fork", error);
    }
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

Keeper::~Keeper()
{
    shutdown(socket_, SHUT_WR);
    // The keeper closes its end when everything is done.
    std::array<char, 256> rest{};
    while (ReadSome(socket_, rest.data(), rest.size()) > 0) {
    }
    close(socket_);
}

void Keeper::Start()
{
    SendOrder(kStartOrder);
    const std::string line = ReadRawLine();
    ThrowIfFailed(line);
    pid_ = Value(line, kStarted).value();
}

std::optional<std::string> Keeper::ReadLine()
{
    if (pid_ == 0) {
        return std::nullopt;
    }
    std::string line = ReadRawLine();
    ThrowIfFailed(line);
    if (const auto status = Value(line, kEnded)) {
        pid_ = 0;
        status_ = *status;
        return std::nullopt;
    }
    return line;
}

int Keeper::WaitForEnd()
{
    while (ReadLine()) {
    }
    return status_;
}

// Reads byte by byte, so that Fd() is readable as long as a line is left.
std::string Keeper::ReadRawLine() const
{
    std::string line;
    for (char character = 0;; line += character) {
        if (ReadSome(socket_, &character, sizeof character) <= 0) {
            throw std::runtime_error("the process that watches over the sandbox has gone");
        }
        if (character == '\n') {
            return line;
        }
    }
}

void Keeper::SendOrder(int order) const
{
    const auto byte = static_cast<unsigned char>(order);
    send(socket_, &byte, sizeof byte, MSG_NOSIGNAL);
}

} // namespace kiv::sandbox
