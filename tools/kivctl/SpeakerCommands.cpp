#include "Command.h"
#include "SpeakerList.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <map>
#include <memory>

namespace kiv::ctl {
namespace {

struct StartArguments {
    int mode = NETSPKSETTING_SURROUND;
    int reason = 0;
    std::vector<std::string> speakers;
    std::string file;
};

std::vector<STNetSpkConfig> SpeakersOf(const StartArguments& arguments)
{
    if (arguments.speakers.empty() == arguments.file.empty()) {
        throw BadArguments("name the speakers to start, or the file that lists them");
    }
    if (!arguments.file.empty()) {
        return ReadSpeakerFile(arguments.file);
    }
    std::vector<STNetSpkConfig> list;
    for (const std::string& speaker : arguments.speakers) {
        list.push_back(ParseSpeaker(speaker));
    }
    return list;
}

Action Start(CLI::App& app)
{
    static const std::map<std::string, int> kModes = {
        {"surround", NETSPKSETTING_SURROUND}, {"multiroom", NETSPKSETTING_MULTIROOM}};

    const auto arguments = std::make_shared<StartArguments>();
    app.add_option("--mode", arguments->mode, "Setting mode: surround (80), multiroom (81) or another number")
        ->transform(CLI::Transformer(kModes).description(""))
        ->type_name("MODE")
        ->default_str("surround");
    app.add_option("--reason", arguments->reason, "Reason code")->type_name("N")->capture_default_str();
    app.add_option("SPEAKER", arguments->speakers, "Speaker as MAC[=CONFIG], such as a4:11:22:33:44:55=3")
        ->type_name("");
    app.add_option(
           "--file", arguments->file, R"(JSON file instead: a list of {"mac": "...", "config": N} or "MAC=CONFIG")")
        ->type_name("LIST");
    return [arguments](const Output&) {
        std::vector<STNetSpkConfig> list = SpeakersOf(*arguments);
        return Answered("StartNetworkSpeaker", StartNetworkSpeaker(arguments->mode, list, arguments->reason));
    };
}

Action Stop(CLI::App& app)
{
    const auto type = std::make_shared<int>(0);
    app.add_option("--type", *type, "Stop type")->type_name("N")->capture_default_str();
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
        {"start", "Route the TV's sound to speakers", Start},
        {"stop", "Route the TV's sound back to the TV", Stop},
        {"surround",
         "Surround operation",
         nullptr,
         {
             {"off", "Switch surround operation off", SurroundOff},
             {"channels", "Ask for the number of surround channels", SurroundChannels},
         }},
    };
}

} // namespace kiv::ctl
