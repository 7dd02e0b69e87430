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

struct ToneArguments {
    Mac mac{};
    int parameter = 0;
    int channel = 0;
    int extra = 0;
};

void AddTone(CLI::App& app, ToneArguments& arguments)
{
    AddMac(app, arguments.mac);
    AddNumber(app, "--param", arguments.parameter, "Number that is passed through to the server");
    AddNumber(app, "--extra", arguments.extra, "Another number that is passed through");
}

constexpr auto kToneStart = With<ToneArguments>(
    [](CLI::App& app, ToneArguments& arguments) {
        AddTone(app, arguments);
        AddNumber(app, "--channel", arguments.channel, "Channel type");
    },
    [](const ToneArguments& tone) {
        StartNetSpkTest(tone.mac.data(), tone.parameter, tone.channel, tone.extra);
        return Sent("StartNetSpkTest", kNotConnected);
    });

constexpr auto kToneStop = With<ToneArguments>(AddTone, [](const ToneArguments& tone) {
    StopNetSpkTest(tone.mac.data(), tone.parameter, tone.extra);
    return Sent("StopNetSpkTest", kNotConnected);
});

} // namespace

std::vector<Command> SpeakerCommands()
{
    return {
        {"start", "Route the TV's sound to speakers; the server answers how many play then", kStart,
         "StartNetworkSpeaker"},
        {"stop", "Route the TV's sound back to the TV", kStop, "StopNetworkSpeaker"},
        Group(
            "surround", "Switch surround operation off, or ask for its channels",
            {
                {"off", "Switch surround operation off", kSurroundOff, "DisableSurround"},
                {"channels", "Ask for the number of surround channels", kSurroundChannels, "GetSurroundChannelNumber"},
            }),
        Group(
            "tone", "Start and stop test tones",
            {
                {"start", "Start the test of a speaker", kToneStart, "StartNetSpkTest"},
                {"stop", "Stop the test of a speaker", kToneStop, "StopNetSpkTest"},
            }),
    };
}

} // namespace kiv::ctl
