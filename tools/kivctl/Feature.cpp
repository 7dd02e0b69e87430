#include "tools/kivctl/Feature.h"

#include "src/link/Owners.h"

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
    const link::KeyFileOwner features(g_key_file_new());
    link::ErrorOwner error;
    const link::TextOwner value(
        g_key_file_load_from_file(features.get(), file, G_KEY_FILE_NONE, error.Out()) == FALSE
            ? nullptr
            : g_key_file_get_value(features.get(), kGroup, kKey, error.Out()));
    return value == nullptr ? fmt::format("{}: {}", file, error->message)
                            : fmt::format("{}: {} must be true or false, got \"{}\"", file, kKey, value.get());
}

} // namespace kiv::ctl
