#include "tools/kivctl/Arguments.h"
#include <KivServiceInterface.h>

namespace kiv::ctl {
namespace {

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

std::vector<Command> ToneCommands()
{
    return {
        Group(
            "tone", "Start and stop test tones",
            {
                {"start", "Start the test of a speaker", kToneStart},
                {"stop", "Stop the test of a speaker", kToneStop},
            }),
    };
}

std::vector<Command> ToneFunctions()
{
    return {
        {"StartNetSpkTest", "Start the test of a speaker", kToneStart},
        {"StopNetSpkTest", "Stop the test of a speaker", kToneStop},
    };
}

} // namespace kiv::ctl
