#include "link/BusClient.h"
#include "link/EventReceivers.h"
#include "link/LibraryPin.h"
#include "link/MonitorThread.h"
#include "link/SystemBus.h"

namespace kiv::link {

namespace {

// Releases the library's objects when dlclose() unmaps the library: none of its threads runs then, and nothing is
// locked. When a process exits, nothing is released, because other threads may still use the objects. In a child of
// fork(), a lock may be held by a thread that the child does not have.
//
// Objects that refer to a connection are released before the connection. The receivers and the key can be released in
// any order. This function runs before the library's static objects are destroyed.
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
