#include <KivServiceInterface.h>

#include <cstdio>

int main()
{
    std::vector<CNetSpkNodeInfo> nodes;
    const int count = GetNetSpkNodeList(nodes);
    if (count < 0) {
        std::puts("the call failed, or there is no node: see the log");
    } else {
        std::printf("%d nodes\n", count);
    }

    char name[NETSPK_LIST_NAME_LEN] = {};
    char type[NETSPK_SPEAKER_TYPE_LEN + 1] = {};
    std::vector<spk_info_s> active;
    GetActiveNetSpkInfo(name, type, active);
    // The result of the call is the number that the server announced. The list has the speakers that the server sent.
    std::printf("%zu active\n", active.size());
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
