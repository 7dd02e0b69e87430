#include <KivServiceInterface.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <semaphore>

using namespace std::chrono_literals;

namespace {

std::atomic<int> g_event;
std::counting_semaphore<> g_told{0};

// On the library's monitor thread: copy what is of use, hand it over, and return.
void OnEvent(int id, void* /*data*/, int /*length*/)
{
    g_event = id;
    g_told.release();
}

} // namespace

int main()
{
    if (SubscribeNamServiceCallback("example", OnEvent) != 1) {
        std::puts("no events");
        return 1;
    }
    // The server tells of the volume by an event. What it sends before the library is ready is lost.
    const unsigned char left[NETSPK_MAC_LEN] = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01};
    do {
        GetNetSpkVolume(left, 0);
    } while (!g_told.try_acquire_for(100ms));
    std::printf("event 0x%08x\n", static_cast<unsigned>(g_event));

    UnsubscribeNamServiceCallback("example");
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
