#include "support/Wait.h"

#include <poll.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace kiv::test {

void GiveUp(const std::string& awaited)
{
    const std::string what = "waited " + std::to_string(kPatience.count()) + " s for " + awaited;
    std::fprintf(stderr, "%s\n", what.c_str());
    throw std::runtime_error(what);
}

void WaitUntilReadable(const std::string& awaited, int descriptor)
{
    pollfd event{descriptor, POLLIN, 0};
    if (poll(&event, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) == 0) {
        GiveUp(awaited);
    }
}

int WaitForExit(const std::string& awaited, int pid)
{
    int status = 0;
    try {
        WaitUntil(awaited, [&] { return waitpid(pid, &status, WNOHANG) != 0; });
    } catch (const std::runtime_error&) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        throw;
    }
    return status;
}

} // namespace kiv::test
