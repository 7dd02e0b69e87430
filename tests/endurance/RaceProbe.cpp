// Makes a data race on purpose: a callback on the monitor thread and the calling thread write the same variable. The
// thread sanitizer must report it in spite of all suppressions.

#include "KivServiceInterface.h"
#include "support/Server.h"
#include "support/Wait.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

int g_planted;
// The order is relaxed, so that the sanitizer does not see one thread's access as before the other's.
std::atomic<bool> g_written;
std::atomic<bool> g_received;

void OnEvent(int /*eventId*/, void* /*data*/, int /*length*/)
{
    ++g_planted;
    g_received.store(true, std::memory_order_relaxed);
}

void SendEvent()
{
    kiv::test::ServerControl server(std::getenv("DBUS_SYSTEM_BUS_ADDRESS"));
    server.WaitForOwner("org.lumra.tv.networkspeaker.client.tv_" + std::to_string(getpid()));
    kiv::test::WaitUntil("the first access", [] { return g_written.load(std::memory_order_relaxed); });
    server.SendEvent(7, {});
}

} // namespace

int main()
{
    kiv::test::WaitUntil("the subscription", [] { return SubscribeNamServiceCallback("race", OnEvent) == 1; });
    std::thread sender(SendEvent);
    ++g_planted;
    g_written.store(true, std::memory_order_relaxed);
    // The wait polls rarely, because the sanitizer forgets an access after many others.
    kiv::test::WaitUntil("the event", [] { return g_received.load(std::memory_order_relaxed); });
    ++g_planted;
    sender.join();
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
