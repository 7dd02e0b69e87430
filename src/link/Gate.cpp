#include "KivServiceInterface.h"
#include "link/Log.h"

#include <atomic>

bool g_KivDisabled;
bool g_GetSystemVal;
char g_strDeviceName[128];

namespace {

constexpr const char* kFeatureKey = "com.molvane/featureconf/kiv_multi_ch_support";

} // namespace

bool GetWhetherKivDisabled()
{
    const std::atomic_ref disabled(g_KivDisabled);
    const std::atomic_ref known(g_GetSystemVal);
    if (known) {
        const bool answer = disabled;
        if (answer) {
            KIV_LOG_INFO("GetWhetherKivDisabled g_KivDisabled=[%d]", answer);
        }
        return answer;
    }
    bool supported = false;
    if (system_info_get_custom_bool(kFeatureKey, &supported) != 0) {
        return disabled;
    }
    // The value is stored before the flag, so that a thread that sees the flag sees the value.
    disabled = !supported;
    known = true;
    KIV_LOG_INFO("GetWhetherKivDisabled g_KivDisabled=[%d]", !supported);
    return !supported;
}
