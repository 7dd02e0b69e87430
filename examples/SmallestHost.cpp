#include <KivServiceInterface.h>

#include <cstdio>

int main()
{
    const STNetSpkConfig left = {0, 1, {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01}, {}};
    std::vector<STNetSpkConfig> speakers{left};
    std::printf("started: %d\n", StartNetworkSpeaker(NETSPKSETTING_SURROUND, speakers, 0));
    std::printf("stopped: %d\n", StopNetworkSpeaker(0));
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
