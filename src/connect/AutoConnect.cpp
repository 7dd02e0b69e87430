#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/Bytes.h"

using namespace kiv::link;

namespace {

int AutoConnect(const Here& here, const char* method, const unsigned char* macs, int count)
{
    const ApiCall call(here);
    if (!call.Ready()) {
        return kApiFailed;
    }
    if (macs == nullptr || count <= 0) {
        KIV_LOG_AT(here, kLogError, "(%s) return", "connectNewSpeakersMacAddrLists == NULL || nNewSpeakersCount <= 0");
        return kApiFailed;
    }
    const std::uint64_t macsLength = std::uint64_t{NETSPK_MAC_LEN} * static_cast<unsigned>(count);
    if (!call.CanSend(sizeof count + macsLength)) {
        return kApiFailed;
    }
    const Payload payload{BytesOf(count), Bytes(macs, static_cast<std::size_t>(macsLength))};
    if (!payload) {
        KIV_LOG_AT(here, kLogError, "(%s) return", "pNewSpeakersMacList == NULL");
        return kApiFailed;
    }
    const int nRet = call.AnswerOrMinusOne(method, BytesTuple(payload));
    KIV_LOG_AT(here, kLogInfo, "[%s] nRet[%d]", kApiTag, nRet);
    return nRet;
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
    const ApiCall call(KIV_HERE);
    return call.Ready() ? call.AnswerOrMinusOne("ConnectToSpeakerForInfraLessSetup", g_variant_new("(i)", nParam))
                        : kApiFailed;
}

int StartNetworkSpeakerGroupByMobile(int nParam)
{
    const ApiCall call(KIV_HERE);
    return call.Ready() ? call.AnswerOrMinusOne("StartNetworkSpeakerGroupByMobile", g_variant_new("(i)", nParam))
                        : kApiFailed;
}
