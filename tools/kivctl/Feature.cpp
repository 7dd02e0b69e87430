#include "tools/kivctl/Feature.h"

#include <fmt/format.h>
#include <glib.h>

#include <cstdlib>

namespace kiv::ctl {

std::string WhyFeatureIsUnknown()
{
    constexpr const char* kGroup = "com.molvane/featureconf";
    constexpr const char* kKey = "kiv_multi_ch_support";
    const char* file = std::getenv("KIV_SYSTEM_INFO_FILE");
    if (file == nullptr || *file == '\0') {
        return {};
    }
    g_autoptr(GKeyFile) features = g_key_file_new();
    g_autoptr(GError) error = nullptr;
    g_autofree char* value = g_key_file_load_from_file(features, file, G_KEY_FILE_NONE, &error) == FALSE
                                 ? nullptr
                                 : g_key_file_get_value(features, kGroup, kKey, &error);
    return value == nullptr ? fmt::format("{}: {}", file, error->message)
                            : fmt::format("{}: {} must be true or false, got \"{}\"", file, kKey, value);
}

} // namespace kiv::ctl
