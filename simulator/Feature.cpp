#include "simulator/Feature.h"

#include "simulator/Glib.h"
#include "src/link/Owners.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace kiv::simulator {

void WriteFeature(const std::string& file, const std::string& feature)
{
    if (file.empty()) {
        throw InvalidArguments("the simulator was started without a feature file");
    }
    if (std::ranges::find(kFeatures, feature) == kFeatures.end()) {
        throw InvalidArguments(fmt::format("must be one of {}, got \"{}\"", fmt::join(kFeatures, ", "), feature));
    }
    std::string text = "[com.molvane/featureconf]\n";
    if (feature != "absent") {
        text += fmt::format("kiv_multi_ch_support={}\n", feature == "on");
    }
    link::ErrorOwner error;
    // g_file_set_contents() replaces the file as a whole, so that no reader sees a part of it.
    if (g_file_set_contents(file.c_str(), text.c_str(), static_cast<gssize>(text.size()), error.Out()) == FALSE) {
        throw BusError("org.freedesktop.DBus.Error.Failed", error->message);
    }
}

} // namespace kiv::simulator
