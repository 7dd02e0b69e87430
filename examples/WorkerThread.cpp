#include <KivServiceInterface.h>

#include <chrono>
#include <cstdio>
#include <future>

using namespace std::chrono_literals;

int main()
{
    std::future<int> channels = std::async(std::launch::async, GetSurroundChannelNumber);
    while (channels.wait_for(16ms) == std::future_status::timeout) {
        // A TV application draws the next frame of its user interface here.
    }
    const int answer = channels.get();
    if (answer < 0) {
        std::puts("the speakers cannot be asked");
    } else {
        std::printf("%d surround channels\n", answer);
    }
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
