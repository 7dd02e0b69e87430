#include "link/Owners.h"
#include "platform/Platform.h"

#include <glib.h>

#include <cstdlib>
#include <cstring>

using namespace kiv::link;

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
    const KeyFileOwner features(g_key_file_new());
    if (!g_key_file_load_from_file(features.get(), FeatureFile(), G_KEY_FILE_NONE, nullptr)) {
        return kUnreadable;
    }
    const TextOwner group(g_strndup(key, static_cast<gsize>(slash - key)));
    ErrorOwner error;
    const bool answer = g_key_file_get_boolean(features.get(), group.get(), slash + 1, error.Out()) != FALSE;
    if (error) {
        return kUnreadable;
    }
    *value = answer;
    return kRead;
}
