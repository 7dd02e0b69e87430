#include "Arguments.h"
#include "Completion.h"
#include "SpeakerList.h"
#include <KivServiceInterface.h>

#include <memory>

namespace kiv::ctl {
namespace {

struct StartArguments {
    int mode = NETSPKSETTING_SURROUND;
    int reason = 0;
    SpeakerArguments speakers;
};

Action Start(CLI::App& app)
{
    const auto arguments = std::make_shared<StartArguments>();
    OfferValues(
        AddParsed(app, "--mode", arguments->mode, ParseMode, kModeDescription)
            ->type_name("MODE")
            ->default_str("surround"),
        ModeNames());
    AddNumber(app, "--reason", arguments->reason, "Reason code; the server and the application agree on it");
    AddSpeakers(app, arguments->speakers);
    return [arguments](const Output&) {
        std::vector<STNetSpkConfig> list = SpeakersOf(arguments->speakers);
        const int playing = StartNetworkSpeaker(arguments->mode, list, arguments->reason);
        return Answered("StartNetworkSpeaker", playing, playing == 0 && !list.empty() ? kNonePlays : kPlaying);
    };
}

Action Stop(CLI::App& app)
{
    const auto type = std::make_shared<int>(0);
    AddNumber(app, "--type", *type, "Stop type; the server and the application agree on it");
    return [type](const Output&) { return Answered("StopNetworkSpeaker", StopNetworkSpeaker(*type)); };
}

Action SurroundOff(CLI::App&)
{
    return [](const Output&) { return Answered("DisableSurround", DisableSurround()); };
}

Action SurroundChannels(CLI::App&)
{
    return [](const Output&) { return Answered("GetSurroundChannelNumber", GetSurroundChannelNumber()); };
}

} // namespace

std::vector<Command> SpeakerCommands()
{
    return {
        {"start", "Route the TV's sound to speakers; the server answers how many play then", Start},
        {"stop", "Route the TV's sound back to the TV", Stop},
        {"surround",
         "Switch surround operation off, or ask for its channels",
         nullptr,
         {
             {"off", "Switch surround operation off", SurroundOff},
             {"channels", "Ask for the number of surround channels", SurroundChannels},
         }},
    };
}

std::vector<Command> SpeakerFunctions()
{
    return {
        {"StartNetworkSpeaker", "Route the TV's sound to speakers", Start},
        {"StopNetworkSpeaker", "Route the TV's sound back to the TV", Stop},
        {"DisableSurround", "Switch surround operation off", SurroundOff},
        {"GetSurroundChannelNumber", "Ask for the number of surround channels", SurroundChannels},
    };
}

} // namespace kiv::ctl
