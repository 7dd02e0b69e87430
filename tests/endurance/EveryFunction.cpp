#include "endurance/EveryFunction.h"

#include "KivServiceInterface.h"

#include <iterator>
#include <vector>

namespace kiv::endurance {

namespace {

constexpr unsigned char kMac[NETSPK_MAC_LEN] = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01};
constexpr unsigned char kSoundbarMac[NETSPK_MAC_LEN] = {0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0};
constexpr int kIp = 0x1500a8c0;
constexpr int kSoundbarIp = 0x1400a8c0;
constexpr int kNode = 1;
constexpr unsigned char kBytes[] = {1, 2, 3, 4, 5, 6, 7, 8};
constexpr int kByteCount = sizeof kBytes;

std::vector<STNetSpkConfig> Speakers()
{
    return {
        {0, 1, {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01}, {}},
        {0, 2, {0x02, 0x4b, 0x49, 0x56, 0x00, 0x02}, {}},
        {0, 3, {0x02, 0x4b, 0x49, 0x56, 0x00, 0xff}, {}}};
}

void IgnoreEvent(int /*eventId*/, void* /*data*/, int /*length*/) {}

void IgnoreAtmos(int /*supported*/, void* /*userData*/) {}

void AddSubscriber()
{
    SubscribeNamServiceCallback("every function", IgnoreEvent);
}

void AddAtmosCallback()
{
    register_atmos_support_cb(IgnoreAtmos, nullptr);
}

constexpr void (*kCalls[])() = {
    AddSubscriber,
    [] { UnsubscribeNamServiceCallback("every function"); },
    [] { NodeRemoveFromWatcher(kNode); },

    [] { kiv_is_receiver_atmos(); },
    AddAtmosCallback,
    AddAtmosCallback, // the second registration is refused
    [] { unregister_atmos_support_cb(IgnoreAtmos); },
    [] { unregister_atmos_support_cb(IgnoreAtmos); },

    [] {
        auto speakers = Speakers();
        StartNetworkSpeaker(NETSPKSETTING_SURROUND, speakers, 1);
    },
    [] { StopNetworkSpeaker(1); },
    [] { DisableSurround(); },
    [] { GetSurroundChannelNumber(); },

    [] {
        char displayName[NETSPK_LIST_NAME_LEN];
        char speakerType[NETSPK_SPEAKER_TYPE_LEN + 1];
        std::vector<spk_info_s> list;
        GetActiveNetSpkInfo(displayName, speakerType, list);
    },
    [] {
        std::vector<STNetSpkListInfo> list;
        GetNetSpkListInfo(list);
    },
    [] {
        STNetSpkListInfo lists[8]; // at least one for each speaker of the simulated home
        getNetSpkListInfo(lists);
    },
    [] { GetNetSpkListInfoNumber(); },
    [] {
        std::vector<CNetSpkNodeInfo> list;
        GetNetSpkNodeList(list);
    },

    [] { ConnectNetworkSpeakerByMobile(kBytes, kByteCount); },
    [] { ConnectNetworkSpeakerByMobile(kBytes, 0xffffffff); },
    [] { Vireon_StartNetworkSpeakerByID("KIV01", 1, 2, 3); },
    [] { Vireon_StartNetworkSpeakerByID(nullptr, 1, 2, 3); },
    [] { StartNetworkSpeakerByID(kNode, 2, 3); },
    [] { GetSpksConnectionTypeByID(kNode); },
    [] {
        auto speakers = Speakers();
        GetSpksConnectionType(&speakers);
    },
    [] { GetSpksConnectionType(nullptr); },
    [] { AutoConnectNewSpeakers(kMac, 1); },
    [] { AutoConnectNewSpeakers(kMac, 0x7fffffff); },
    [] { AutoConnectNewSpeakersForOutdoor(kMac, 1); },
    [] { ConnectToSpeakerForInfraLessSetup(kNode); },
    [] { StartNetworkSpeakerGroupByMobile(1); },

    [] { CanCancelTavrin(); },
    [] { PreSelectTavrin(); },
    [] { CanSelectTavrin(); },

    [] { StartNetSpkTest(kMac, 1, 2, 3); },
    [] { StopNetSpkTest(kMac, 1, 3); },
    [] { StopNetSpkTest(nullptr, 1, 3); },

    [] { SetSoundbarSoundMode(kSoundbarMac, kSoundbarIp, kBytes, kByteCount); },
    [] { SetSoundbarSoundMode(kSoundbarMac, kSoundbarIp, kBytes, -1); },
    [] {
        unsigned char deviceInfo[KIV_SOUNDBAR_DEVICE_INFO_LEN];
        unsigned char soundMode[KIV_SOUND_MODE_LEN];
        GetSoundbarSoundMode(deviceInfo, soundMode);
    },
    [] {
        unsigned char deviceInfo[KIV_SOUNDBAR_DEVICE_INFO_LEN];
        GetSoundbarDeviceInfo(deviceInfo);
    },
    [] { SetSoundbarSupportSoundMode(kSoundbarMac, kSoundbarIp, 1); },
    [] {
        unsigned char version[KIV_SOUND_MODE_LEN];
        GetSoundbarProtocolVersion(kSoundbarMac, version, sizeof version);
    },
    [] { IsSoundbarSupportSoundMode(kSoundbarMac); },

    [] { SetNetSpkName(kMac, kIp, "Living room"); },
    [] { SetNetSpkName(kMac, kIp, "\xff no UTF-8"); },
    [] { SetNetSpkVolume(kMac, kIp, 20); },
    [] { GetNetSpkVolume(kMac, kIp); },
    [] { IncreaseNetSpkVolume(kMac, kIp); },
    [] { DecreaseNetSpkVolume(kMac, kIp); },
    [] { ResetNetSpkVolume(kMac, kIp); },
    [] { ResetAllNetSpkVolume(); },
    [] { IncreaseNetSpkVolumeList(Speakers()); },
    [] { DecreaseNetSpkVolumeList(Speakers()); },
    [] { ResetNetSpkVolumeList(Speakers()); },
    [] { GetNetSpkVolumeList(Speakers()); },

    [] { SetTavrinUIMode(NETSPKSETTING_MULTIROOM); },
    [] { GetTavrinUIMode(); },
    [] { GetNetSpkSettingMode(); },
    [] { CanEnterTavrinSettings(); },
    [] { FlagEnableNetworkSpeaker(); },

    [] { CNSGdbus::m_pInstance->m_IsExistedBusname("org.example.Nobody"); },
    [] {
        GVariant* reply = nullptr;
        CNSGdbus::m_pInstance->MethodCall("GetTavrinUIMode", nullptr, &reply, true);
        g_clear_pointer(&reply, g_variant_unref);
    },
    [] { CNSGdbus::m_pInstance->MethodCall("GetTavrinUIMode", nullptr, nullptr, true); },
    [] { CNSGdbus::m_pInstance->MethodCall("no method", g_variant_new("(s)", "argument"), nullptr, true); }};

} // namespace

void CallEveryFunction()
{
    for (const auto call : kCalls) {
        call();
    }
}

void CallFunction(int number)
{
    kCalls[number]();
}

void AddCallbacks()
{
    AddSubscriber();
    AddAtmosCallback();
}

int FunctionCount()
{
    return std::size(kCalls);
}

} // namespace kiv::endurance
