#include <KivServiceInterface.h>

#include <stdio.h>
#include <stdlib.h>

/* CHostVectors.cpp defines these two functions. */
int StartSpeakers(int mode, const STNetSpkConfig* speakers, size_t count, int reason);
int EndMonitor(void);

int main(void)
{
    if (GetWhetherKivDisabled()) {
        puts("this TV has no network speakers");
        return 0;
    }
    const STNetSpkConfig left = {.nConfig = 1, .mac = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01}};
    printf("started: %d\n", StartSpeakers(NETSPKSETTING_SURROUND, &left, 1, 0));
    /* A start by the number of a node needs no vector. */
    printf("node 1 started: %d\n", StartNetworkSpeakerByID(NETSPKSETTING_SURROUND, 1, 0));

    /* There is room for 8 more lists, because some may appear between the two calls. */
    const int number = GetNetSpkListInfoNumber();
    STNetSpkListInfo* lists = calloc((number > 0 ? (size_t)number : 0) + 8, sizeof *lists);
    printf("%d lists\n", lists ? getNetSpkListInfo(lists) : -1);
    free(lists);

    printf("stopped: %d\n", StopNetworkSpeaker(0));
    return EndMonitor();
}
