#include <KivServiceInterface.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

extern "C" {

[[gnu::format(printf, 4, 5)]] KIV_API int
__dlog_print(int /*logId*/, int priority, const char* tag, const char* format, ...)
{
    constexpr int kError = 6;
    if (priority < kError) {
        return 0;
    }
    va_list arguments;
    va_start(arguments, format);
    std::printf("%s: ", tag);
    std::vprintf(format, arguments);
    std::puts("");
    va_end(arguments);
    return 0;
}

KIV_API int system_info_get_custom_bool(const char* key, bool* value)
{
    if (std::strcmp(key, "com.molvane/featureconf/kiv_multi_ch_support") != 0) {
        return -1;
    }
    *value = false;
    return 0;
}
}

int main()
{
    return StopNetworkSpeaker(0) == -1 && GetWhetherKivDisabled() ? 0 : 1;
}
