#include <KivServiceInterface.h>

// The call fails, because there is no bus during the build.
int main()
{
    return GetWhetherKivDisabled() || StopNetworkSpeaker(0) == -1 ? 0 : 1;
}
