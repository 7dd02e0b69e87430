#include "KivServiceInterface.h"

// A plug-in of a host. It uses the library, and ends its monitor when it is unloaded.

namespace {

struct CleanUp {
    ~CleanUp() { CNSGdbus::m_pInstance->m_DestroyMessageMonitor(); }
};

const CleanUp g_cleanUp;

} // namespace

extern "C" __attribute__((visibility("default"))) int Stop(int type)
{
    return StopNetworkSpeaker(type);
}
