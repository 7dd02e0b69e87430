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
        std::puts("no subscription: the lines above tell why");
        return 1;
    }
    // The server tells of the volume by an event. It is asked again, because an event that it sends before the library
    // is ready is lost, and not for ever, because on some buses none arrives.
    const unsigned char left[NETSPK_MAC_LEN] = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01};
    bool told = false;
    for (int attempt = 0; !told && attempt < 100; ++attempt) {
        GetNetSpkVolume(left, 0);
        told = g_told.try_acquire_for(100ms);
    }
    if (told) {
        std::printf("event 0x%08x\n", static_cast<unsigned>(g_event));
    } else {
        std::puts("no event within 10 seconds: run \"kivctl doctor\" on the same bus, which says why");
    }

    UnsubscribeNamServiceCallback("example");
    const int ended = CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
    return told ? ended : 1;
}
