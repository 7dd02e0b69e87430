#include "link/BusClient.h"
#include "link/EventReceivers.h"
#include "link/LibraryPin.h"
#include "link/MonitorThread.h"
#include "link/SystemBus.h"

namespace kiv::link {

namespace {

/*
 * Releases what the library holds when dlclose() takes it out of memory: none of its threads is left then, and nothing
 * is locked. Nothing is released when a process exits, because its threads may still use it. A child of fork() may even
 * have inherited a lock that is held by a thread which the child does not have.
 *
 * The order: those that refer to a connection go before the connection. The receivers and the key have no order. This
 * function runs before the library's static objects are destroyed.
 */
[[gnu::destructor]] void Unload()
{
    if (WhichEnd() != End::kOfLibrary) {
        return;
    }
    ForgetMonitor();
    EndClient();
    DropOwnConnection();
    ForgetSubscribers();
    ForgetAtmosCallbacks();
    DeleteThreadEndKey();
}

} // namespace

} // namespace kiv::link
