#include "platform/Platform.h"

int __dlog_print(int /*logId*/, int /*priority*/, const char* /*tag*/, const char* /*format*/, ...)
{
    return 0;
}

int system_info_get_custom_bool(const char* /*key*/, bool* /*value*/)
{
    return -1;
}
