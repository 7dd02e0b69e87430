#include "KivServiceInterface.h"

// A host's plug-in that uses the library, and cleans up when it is unloaded.

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
