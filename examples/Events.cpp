#include <KivServiceInterface.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <semaphore>

using namespace std::chrono_literals;

namespace {

constexpr unsigned char kLeft[NETSPK_MAC_LEN] = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01};

// The documentation of a server says which events it sends and what data they have. This is the volume event of the
// simulated server. Its data are a MAC address, an IPv4 address and the volume.
constexpr int kVolumeEvent = 0x02020040;
constexpr int kVolumeLength = 14;
constexpr int kVolumeOffset = 10;

std::atomic<int> g_volume;
std::counting_semaphore<> g_told{0};

// Runs on the library's monitor thread. Copies what it needs, hands that over, and returns. Events for other speakers,
// and other events, may come first.
void OnEvent(int id, void* data, int length)
{
    if (id != kVolumeEvent || length < kVolumeLength || std::memcmp(data, kLeft, sizeof kLeft) != 0) {
        return;
    }
    int32_t volume = 0;
    std::memcpy(&volume, static_cast<const char*>(data) + kVolumeOffset, sizeof volume);
    g_volume = volume;
    g_told.release();
}

} // namespace

int main()
{
    if (SubscribeNamServiceCallback("example", OnEvent) != 1) {
        std::puts("no subscription: the lines above tell why");
        return 1;
    }
    // The server reports the volume by an event. The loop asks several times, because an event that the server sends
    // before the library is ready is lost. It gives up after 10 seconds, because on some buses no event arrives.
    bool told = false;
    for (int attempt = 0; !told && attempt < 100; ++attempt) {
        GetNetSpkVolume(kLeft, 0);
        told = g_told.try_acquire_for(100ms);
    }
    if (told) {
        std::printf("volume %d\n", g_volume.load());
    } else {
        std::puts("no volume within 10 seconds: run \"kivctl doctor\" on the same bus, which says why");
    }

    UnsubscribeNamServiceCallback("example");
    // A callback may still run after its subscription has ended. After this call, none does.
    const int ended = CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
    return told ? ended : 1;
}
