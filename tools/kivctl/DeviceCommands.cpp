#include "tools/kivctl/Command.h"
#include "tools/kivctl/Doctor.h"
#include "tools/kivctl/Explain.h"
#include "tools/kivctl/Feature.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <memory>

namespace kiv::ctl {
namespace {

constexpr auto kFeatureEnabled = Plain([] {
    if (GetWhetherKivDisabled()) {
        return Result{kNoNetworkSpeakers, "no", {{"result", false}}};
    }
    if (!g_GetSystemVal) {
        const std::string why = WhyFeatureIsUnknown();
        const std::string reason =
            fmt::format("it cannot be read, which counts as yes{}{}", why.empty() ? "" : ": ", why);
        return Done("yes: " + reason, {{"result", true}, {"reason", reason}});
    }
    return Done("yes", {{"result", true}});
});

constexpr auto kFeatureDisabled = Plain([] {
    const bool disabled = GetWhetherKivDisabled();
    return Done(disabled ? "yes" : "no", {{"result", disabled}});
});

Action Doctor(CLI::App&)
{
    return Examine;
}

Action ExplainLog(CLI::App& app)
{
    const auto file = std::make_shared<std::string>("-");
    app.add_option("FILE", *file, "File with the log; stdin if it is - or left out")->type_name("");
    return [file](const Output& output) { return Explain(*file, output); };
}

constexpr auto kRecordSizes = Plain([] {
    const int list = get_size_of_spk_list_info_s();
    const int speaker = get_size_of_spk_info_s();
    return Done(
        fmt::format("spk_list_info_s {}\nspk_info_s {}", list, speaker),
        {{"spk_list_info_s", list}, {"spk_info_s", speaker}});
});

} // namespace

std::vector<Command> DeviceCommands()
{
    return {
        {"doctor",
         "Say what works, what does not, and what to do about it; this starts the server, and subscribes for a moment",
         Doctor, Asks::kNobody},
        {"explain",
         "Read a log, such as a file, or the output of journalctl with -o short, cat, verbose or json, and say below "
         "each line of the library what it means and what to do",
         ExplainLog, Asks::kNobody},
        {"enabled", "Show whether this device has network speakers", kFeatureEnabled, Asks::kNobody},
        {"sizes", "Show the sizes of the exported speaker records, in bytes", kRecordSizes, Asks::kNobody},
    };
}

std::vector<Command> DeviceFunctions()
{
    return {
        {"GetWhetherKivDisabled", "Show whether this device has no network speakers", kFeatureDisabled, Asks::kNobody},
    };
}

} // namespace kiv::ctl
