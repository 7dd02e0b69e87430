#include <KivServiceInterface.h>

int main()
{
    const STNetSpkConfig speaker = {0, 1, {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01}, {}};
    std::vector<STNetSpkConfig> speakers{speaker};
    const bool started = StartNetworkSpeaker(NETSPKSETTING_SURROUND, speakers, 0) == 1;
    const bool stopped = StopNetworkSpeaker(0) == 0;
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor() == 0 && started && stopped ? 0 : 1;
}
