#include <KivServiceInterface.h>

// Without a bus, which is not there at the build, a call fails.
int main()
{
    return GetWhetherKivDisabled() || StopNetworkSpeaker(0) == -1 ? 0 : 1;
}
