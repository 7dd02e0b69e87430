#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

using namespace kiv::link;

namespace {

int AutoConnect(const Here& here, const char* method, const unsigned char* macs, int count)
{
    ApiCall call(here);
    if (!call.Ready() ||
        call.Refuses(
            macs == nullptr || count <= 0, "connectNewSpeakersMacAddrLists == NULL || nNewSpeakersCount <= 0")) {
        return kApiFailed;
    }
    Payload payload{BytesOf(count), BytesOf(macs, NETSPK_MAC_LEN, count)};
    if (call.Refuses(!payload, "pNewSpeakersMacList == NULL")) {
        return kApiFailed;
    }
    const int result = call.AnswerOrFailed(method, BytesTuple(std::move(payload)));
    KIV_LOG_AT(here, kLogInfo, "[%s] nRet[%d]", kApiTag, result);
    return result;
}

} // namespace

int AutoConnectNewSpeakers(const unsigned char* connectNewSpeakersMacAddrLists, int nNewSpeakersCount)
{
    return AutoConnect(KIV_HERE, "AutoConnectNewSpeakers", connectNewSpeakersMacAddrLists, nNewSpeakersCount);
}

int AutoConnectNewSpeakersForOutdoor(const unsigned char* connectNewSpeakersMacAddrLists, int nNewSpeakersCount)
{
    KIV_LOG_INFO("AutoConnectNewSpeakersForOutdoor");
    return AutoConnect(KIV_HERE, "AutoConnectNewSpeakersForOutdoor", connectNewSpeakersMacAddrLists, nNewSpeakersCount);
}

int ConnectToSpeakerForInfraLessSetup(int nParam)
{
    ApiCall call(KIV_HERE);
    return call.Ready() ? call.AnswerOrFailed("ConnectToSpeakerForInfraLessSetup", g_variant_new("(i)", nParam))
                        : kApiFailed;
}

int StartNetworkSpeakerGroupByMobile(int nParam)
{
    ApiCall call(KIV_HERE);
    return call.Ready() ? call.AnswerOrFailed("StartNetworkSpeakerGroupByMobile", g_variant_new("(i)", nParam))
                        : kApiFailed;
}
