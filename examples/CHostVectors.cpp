#include <KivServiceInterface.h>

#include <cstddef>

// The host compiles this file as C++ and links it with its C files.
extern "C" int StartSpeakers(int mode, const STNetSpkConfig* speakers, std::size_t count, int reason)
{
    std::vector<STNetSpkConfig> list(speakers, speakers + count);
    return StartNetworkSpeaker(mode, list, reason);
}

extern "C" int EndMonitor()
{
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
