#include "tools/kivctl/Arguments.h"
#include "tools/kivctl/Layout.h"
#include "tools/kivctl/SpeakerList.h"
#include "tools/kivctl/VolumeReports.h"
#include <KivServiceInterface.h>

#include <unistd.h>

#include <algorithm>
#include <iterator>

namespace kiv::ctl {
namespace {

struct NameArguments {
    Mac mac{};
    Ip ip{};
    std::string name;
};

struct WaitArguments {
    bool wait = false;
    bool noWait = false;
    std::string layout;
};

struct VolumeArguments {
    Mac mac{};
    Ip ip{};
    int volume = 0;
    WaitArguments wait;
};

// A request for one speaker, and the same request for a list.
struct VolumeRequest {
    const char* oneName;
    void (*one)(const unsigned char* mac, int ip);
    const char* listName;
    void (*list)(const std::vector<STNetSpkConfig>& list);
};

const VolumeRequest kGet = {"GetNetSpkVolume", GetNetSpkVolume, "GetNetSpkVolumeList", GetNetSpkVolumeList};
const VolumeRequest kUp = {
    "IncreaseNetSpkVolume", IncreaseNetSpkVolume, "IncreaseNetSpkVolumeList", IncreaseNetSpkVolumeList};
const VolumeRequest kDown = {
    "DecreaseNetSpkVolume", DecreaseNetSpkVolume, "DecreaseNetSpkVolumeList", DecreaseNetSpkVolumeList};
const VolumeRequest kReset = {"ResetNetSpkVolume", ResetNetSpkVolume, "ResetNetSpkVolumeList", ResetNetSpkVolumeList};

struct VolumeRequestArguments {
    SpeakerArguments speakers;
    std::optional<Ip> ip;
    WaitArguments wait;
};

void AddWait(CLI::App& app, WaitArguments& arguments)
{
    app.add_flag(
        "--wait", arguments.wait, "Wait for the volumes that the server reports (default if stdout is a terminal)");
    app.add_flag("--no-wait", arguments.noWait, "Only send the request (default if stdout is a file or a pipe)")
        ->excludes("--wait");
    AddLayout(app, arguments.layout);
}

bool Waits(const WaitArguments& arguments)
{
    return arguments.wait || (!arguments.noWait && isatty(STDOUT_FILENO) == 1);
}

// Sends a request for volumes, which the server answers only by events.
template <typename Send>
Result
SendForVolumes(const char* function, const Send& send, const std::vector<Mac>& speakers, const WaitArguments& wait)
{
    const Refusal refusal = speakers.empty() ? Refusal{} : kNotConnected;
    if (!Waits(wait)) {
        send();
        return Sent(function, refusal);
    }
    VolumeReports reports(LayoutOf(wait.layout));
    if (auto failed = reports.Begin()) {
        return *failed;
    }
    send();
    Result sent = Sent(function, refusal);
    return sent.exitCode == kDone ? reports.Await(function, speakers) : sent;
}

constexpr auto kRename = With<NameArguments>(
    [](CLI::App& app, NameArguments& arguments) {
        AddMac(app, arguments.mac);
        app.add_option("NAME", arguments.name, "New name of the speaker")->type_name("")->required();
        AddIp(app, arguments.ip);
    },
    [](const NameArguments& arguments) {
        if (!g_utf8_validate(arguments.name.c_str(), -1, nullptr)) {
            throw BadArguments("NAME must be valid UTF-8");
        }
        SetNetSpkName(arguments.mac.data(), IpNumber(arguments.ip), arguments.name.c_str());
        return Sent("SetNetSpkName", kNotConnected);
    });

void AddSet(CLI::App& app, VolumeArguments& arguments, int32_t (*parse)(const std::string&), const char* description)
{
    AddMac(app, arguments.mac);
    AddRequired(app, "VOLUME", arguments.volume, parse, description);
    AddIp(app, arguments.ip);
}

void SendVolume(const VolumeArguments& arguments)
{
    SetNetSpkVolume(arguments.mac.data(), IpNumber(arguments.ip), arguments.volume);
}

constexpr auto kVolumeSet = With<VolumeArguments>(
    [](CLI::App& app, VolumeArguments& arguments) {
        AddSet(app, arguments, ParseVolume, "New volume, from 0 (silent) to 100 (loudest)");
        AddWait(app, arguments.wait);
    },
    [](const VolumeArguments& arguments) {
        return SendForVolumes(
            "SetNetSpkVolume", [&] { SendVolume(arguments); }, {arguments.mac}, arguments.wait);
    });

// The function itself, unlike the command, takes any number.
constexpr auto kVolumeSetAny = With<VolumeArguments>(
    [](CLI::App& app, VolumeArguments& arguments) {
        AddSet(
            app, arguments, ParseInt,
            "New volume; any number is sent, and the simulated server takes a number beyond 0 to 100 for the nearer "
            "end");
    },
    [](const VolumeArguments& arguments) {
        SendVolume(arguments);
        return Sent("SetNetSpkVolume", kNotConnected);
    });

// Returns whether the arguments name one speaker without a configuration value, which only lists can have.
bool NamesOne(const SpeakerArguments& arguments)
{
    return arguments.file.empty() && arguments.speakers.size() == 1 &&
           arguments.speakers.front().find('=') == std::string::npos;
}

Result RequestVolume(const VolumeRequest& request, const VolumeRequestArguments& arguments)
{
    const auto& [speakers, ip, wait] = arguments;
    if (NamesOne(speakers)) {
        const Mac mac = ParseMac(speakers.speakers.front());
        const int address = IpNumber(ip.value_or(Ip{}));
        return SendForVolumes(
            request.oneName, [&] { request.one(mac.data(), address); }, {mac}, wait);
    }
    if (ip) {
        throw BadArguments("--ip must go with the MAC address of one speaker without a configuration value");
    }
    const std::vector<STNetSpkConfig> list = SpeakersOf(speakers);
    std::vector<Mac> macs;
    std::ranges::transform(
        list, std::back_inserter(macs), [](const STNetSpkConfig& speaker) { return std::to_array(speaker.mac); });
    return SendForVolumes(
        request.listName, [&] { request.list(list); }, macs, wait);
}

auto RequestVolume(const VolumeRequest& request)
{
    return With<VolumeRequestArguments>(
        [](CLI::App& app, VolumeRequestArguments& arguments) {
            AddSpeakers(app, arguments.speakers);
            AddIp(app, arguments.ip);
            AddWait(app, arguments.wait);
        },
        [request](const VolumeRequestArguments& arguments) { return RequestVolume(request, arguments); });
}

auto RequestOne(const VolumeRequest& request)
{
    return With<VolumeArguments>(
        [](CLI::App& app, VolumeArguments& arguments) {
            AddMac(app, arguments.mac);
            AddIp(app, arguments.ip);
        },
        [request](const VolumeArguments& arguments) {
            request.one(arguments.mac.data(), IpNumber(arguments.ip));
            return Sent(request.oneName, kNotConnected);
        });
}

auto RequestList(const VolumeRequest& request)
{
    return With<SpeakerArguments>(AddSpeakers, [request](const SpeakerArguments& speakers) {
        request.list(SpeakersOf(speakers));
        return Sent(request.listName, kNotConnected);
    });
}

constexpr auto kResetAll = With<WaitArguments>(AddWait, [](const WaitArguments& wait) {
    return SendForVolumes("ResetAllNetSpkVolume", ResetAllNetSpkVolume, {}, wait);
});

constexpr auto kResetAllOnly = Plain([] {
    ResetAllNetSpkVolume();
    return Sent("ResetAllNetSpkVolume");
});

} // namespace

std::vector<Command> NameAndVolumeCommands()
{
    return {
        {"name", "Rename a speaker", kRename},
        Group(
            "volume", "Get and set the volumes of speakers",
            {
                {"get", "Ask for the volumes of speakers", RequestVolume(kGet)},
                {"set", "Set a speaker's volume", kVolumeSet},
                {"up", "Turn speakers up by one step", RequestVolume(kUp)},
                {"down", "Turn speakers down by one step", RequestVolume(kDown)},
                {"reset", "Set speakers back to the server's default", RequestVolume(kReset)},
                {"reset-all", "Set all speakers back to the server's default", kResetAll},
            }),
    };
}

std::vector<Command> NameAndVolumeFunctions()
{
    return {
        {"SetNetSpkName", "Rename a speaker", kRename},
        {"SetNetSpkVolume", "Set a speaker's volume", kVolumeSetAny},
        {"GetNetSpkVolume", "Have the server report a speaker's volume", RequestOne(kGet)},
        {"IncreaseNetSpkVolume", "Turn a speaker up by one step", RequestOne(kUp)},
        {"DecreaseNetSpkVolume", "Turn a speaker down by one step", RequestOne(kDown)},
        {"ResetNetSpkVolume", "Set a speaker back to the server's default", RequestOne(kReset)},
        {"ResetAllNetSpkVolume", "Set all speakers back to the server's default", kResetAllOnly},
        {"IncreaseNetSpkVolumeList", "Turn speakers up by one step", RequestList(kUp)},
        {"DecreaseNetSpkVolumeList", "Turn speakers down by one step", RequestList(kDown)},
        {"ResetNetSpkVolumeList", "Set speakers back to the server's default", RequestList(kReset)},
        {"GetNetSpkVolumeList", "Have the server report the volumes of speakers", RequestList(kGet)},
    };
}

} // namespace kiv::ctl
