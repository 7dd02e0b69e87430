#include "KivServiceInterface.h"
#include "link/Log.h"

int get_size_of_spk_list_info_s(...)
{
    KIV_LOG_INFO("spk list size =%zu", sizeof(spk_list_info_s));
    return sizeof(spk_list_info_s);
}

int get_size_of_spk_info_s(...)
{
    KIV_LOG_INFO("spk size =%zu", sizeof(spk_info_s));
    return sizeof(spk_info_s);
}

int SPK_IsConnectToTV(...)
{
    KIV_LOG_INFO("SPK_IsConnectToTV return false");
    return 0;
}

int GetLastConnectSatIdx(...)
{
    return -1;
}

// clang-format off
#define KIV_RETURNS_ZERO(name) int name(...) { return 0; }

KIV_RETURNS_ZERO(SPK_NotifySpkVolumeTable)
KIV_RETURNS_ZERO(SPK_NotifyAudioCtrl)
KIV_RETURNS_ZERO(SPK_GetGroupInfo)
KIV_RETURNS_ZERO(SPK_GetSelfAndAllCandidateNodeInfo)
KIV_RETURNS_ZERO(SPK_GetMacFromDi)
KIV_RETURNS_ZERO(SPK_GetSourceExtraNodeInfo)
KIV_RETURNS_ZERO(SPK_SetBTModeDelay)
KIV_RETURNS_ZERO(SPK_getSelfAndAllNodeInfo)
KIV_RETURNS_ZERO(SPK_GetSelfAndAllNodeInfo)
KIV_RETURNS_ZERO(SPK_SendCalData)
KIV_RETURNS_ZERO(SPK_UnGroupHts)
KIV_RETURNS_ZERO(SPK_GetGroupHts)
KIV_RETURNS_ZERO(SPK_SetHtsVolume)
KIV_RETURNS_ZERO(SPK_SetHtsMute)
KIV_RETURNS_ZERO(SPK_GetHtsVolume)
KIV_RETURNS_ZERO(SPK_GetHtsMute)
KIV_RETURNS_ZERO(SPK_NotifySounbarSettings)
KIV_RETURNS_ZERO(SPK_getAllNodeInfo)
KIV_RETURNS_ZERO(SPK_GetAllNodeInfo)
KIV_RETURNS_ZERO(SPK_GetNumberOfNode)
KIV_RETURNS_ZERO(SPK_NotifyPlayStatus)
KIV_RETURNS_ZERO(SPK_NotifyMasterStatusLED)
KIV_RETURNS_ZERO(SPK_NotifyAlarmVolume)
KIV_RETURNS_ZERO(SPK_NotifySleepMode)
KIV_RETURNS_ZERO(SPK_ChangeVolume)
KIV_RETURNS_ZERO(SPK_NotifySpkVolume)
KIV_RETURNS_ZERO(SPK_NotifySpkMute)
KIV_RETURNS_ZERO(SPK_SetKivMode_singleTV)
KIV_RETURNS_ZERO(SPK_SetKivMode_Lastmemory)
KIV_RETURNS_ZERO(SPK_SetKivMode)
KIV_RETURNS_ZERO(SPK_SetSpkProperty)
KIV_RETURNS_ZERO(SPK_UnGroup)
KIV_RETURNS_ZERO(SPK_SetMultiSpkGroup)
KIV_RETURNS_ZERO(SPK_SetMultiChGroup)
KIV_RETURNS_ZERO(SPK_SetMute)
KIV_RETURNS_ZERO(SPK_SetVolume)
