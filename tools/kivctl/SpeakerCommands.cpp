#include "tools/kivctl/Arguments.h"
#include "tools/kivctl/Completion.h"
#include "tools/kivctl/SpeakerList.h"
#include <KivServiceInterface.h>

namespace kiv::ctl {
namespace {

struct StartArguments {
    int mode = NETSPKSETTING_SURROUND;
    int reason = 0;
    SpeakerArguments speakers;
};

constexpr auto kStart = With<StartArguments>(
    [](CLI::App& app, StartArguments& arguments) {
        OfferValues(
            AddParsed(app, "--mode", arguments.mode, ParseMode, kModeDescription)
                ->type_name("MODE")
                ->default_str("surround"),
            ModeNames());
        AddNumber(app, "--reason", arguments.reason, "Reason code; the server and the application agree on it");
        AddSpeakers(app, arguments.speakers);
    },
    [](const StartArguments& arguments) {
        std::vector<STNetSpkConfig> list = SpeakersOf(arguments.speakers);
        const int playing = StartNetworkSpeaker(arguments.mode, list, arguments.reason);
        return Answered("StartNetworkSpeaker", playing, playing == 0 && !list.empty() ? kNonePlays : kPlaying);
    });

constexpr auto kStop = With<int>(
    [](CLI::App& app, int& type) {
        AddNumber(app, "--type", type, "Stop type; the server and the application agree on it");
    },
    [](int type) { return Answered("StopNetworkSpeaker", StopNetworkSpeaker(type)); });

constexpr auto kSurroundOff = Plain([] { return Answered("DisableSurround", DisableSurround()); });
constexpr auto kSurroundChannels =
    Plain([] { return Answered("GetSurroundChannelNumber", GetSurroundChannelNumber()); });

} // namespace

std::vector<Command> SpeakerCommands()
{
    return {
        {"start", "Route the TV's sound to speakers; the server answers how many play then", kStart},
        {"stop", "Route the TV's sound back to the TV", kStop},
        Group(
            "surround", "Switch surround operation off, or ask for its channels",
            {
                {"off", "Switch surround operation off", kSurroundOff},
                {"channels", "Ask for the number of surround channels", kSurroundChannels},
            }),
    };
}

std::vector<Command> SpeakerFunctions()
{
    return {
        {"StartNetworkSpeaker", "Route the TV's sound to speakers", kStart},
        {"StopNetworkSpeaker", "Route the TV's sound back to the TV", kStop},
        {"DisableSurround", "Switch surround operation off", kSurroundOff},
        {"GetSurroundChannelNumber", "Ask for the number of surround channels", kSurroundChannels},
    };
}

} // namespace kiv::ctl
