#include "Command.h"
#include "Doctor.h"
#include "Explain.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>
#include <glib.h>

#include <cstdlib>

namespace kiv::ctl {
namespace {

// Why the stand-in for the TV platform finds no answer in the file that is named to it. Empty if there is none.
std::string WhyUnreadable()
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
    return value == nullptr ? fmt::format(": {}: {}", file, error->message)
                            : fmt::format(": {}: {} must be true or false, got \"{}\"", file, kKey, value);
}

Action Enabled(CLI::App&)
{
    return [](const Output&) {
        if (GetWhetherKivDisabled()) {
            return Result{kNoNetworkSpeakers, "no", {{"result", false}}};
        }
        if (!g_GetSystemVal) {
            const std::string reason = "it cannot be read, which counts as yes" + WhyUnreadable();
            return Done("yes: " + reason, {{"result", true}, {"reason", reason}});
        }
        return Done("yes", {{"result", true}});
    };
}

Action Disabled(CLI::App&)
{
    return [](const Output&) {
        const bool disabled = GetWhetherKivDisabled();
        return Done(disabled ? "yes" : "no", {{"result", disabled}});
    };
}

Action Sizes(CLI::App&)
{
    return [](const Output&) {
        const int list = get_size_of_spk_list_info_s();
        const int speaker = get_size_of_spk_info_s();
        return Done(
            fmt::format("spk_list_info_s {}\nspk_info_s {}", list, speaker),
            {{"spk_list_info_s", list}, {"spk_info_s", speaker}});
    };
}

} // namespace

std::vector<Command> DeviceCommands()
{
    return {
        {"doctor",
         "Tell what works, what does not, and what to do about it; starts the server, and subscribes for a moment",
         [](CLI::App&) -> Action { return [](const Output& output) { return Examine(output); }; }},
        {"explain", "Read a log from stdin, and tell below each line of the library's what it means and what to do",
         [](CLI::App&) -> Action { return [](const Output& output) { return Explain(output); }; }},
        {"enabled", "Tell whether this device has network speakers", Enabled},
        {"sizes", "Show the sizes of the exported speaker records, in bytes", Sizes},
    };
}

std::vector<Command> DeviceFunctions()
{
    return {
        {"GetWhetherKivDisabled", "Tell whether this device has no network speakers", Disabled},
    };
}

} // namespace kiv::ctl
