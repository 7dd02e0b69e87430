#include "platform/Platform.h"

#include <glib.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr int kRead = 0;
constexpr int kUnreadable = -1;

const char* FeatureFile()
{
    const char* const chosen = std::getenv("KIV_SYSTEM_INFO_FILE");
    return chosen != nullptr && *chosen != '\0' ? chosen : KIV_SYSTEM_INFO_DEFAULT_FILE;
}

} // namespace

[[gnu::visibility("default")]] int system_info_get_custom_bool(const char* key, bool* value)
{
    const char* const slash = key != nullptr ? std::strrchr(key, '/') : nullptr;
    if (slash == nullptr || value == nullptr) {
        return kUnreadable;
    }
    g_autoptr(GKeyFile) features = g_key_file_new();
    if (!g_key_file_load_from_file(features, FeatureFile(), G_KEY_FILE_NONE, nullptr)) {
        return kUnreadable;
    }
    g_autofree char* group = g_strndup(key, static_cast<gsize>(slash - key));
    g_autoptr(GError) error = nullptr;
    const bool answer = g_key_file_get_boolean(features, group, slash + 1, &error) != FALSE;
    if (error != nullptr) {
        return kUnreadable;
    }
    *value = answer;
    return kRead;
}
