#include "link/BusClient.h"
#include "link/EventReceivers.h"
#include "link/LibraryPin.h"
#include "link/MonitorThread.h"
#include "link/SystemBus.h"

namespace kiv::link {

namespace {

/*
 * The end of the library, in this order. Runs when dlclose() takes the library out of memory: none of its threads is
 * left then, and nothing is locked. Nothing is released when the process exits, whose threads may still be using it;
 * nor when a child of fork() exits, which may have inherited any lock as it was held by a thread that the child does
 * not have.
 *
 * A destructor function of the library runs before its static objects end.
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
