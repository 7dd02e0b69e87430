#include "Arguments.h"
#include <KivServiceInterface.h>

#include <memory>

namespace kiv::ctl {
namespace {

struct ToneArguments {
    Mac mac{};
    int parameter = 0;
    int channel = 0;
    int extra = 0;
};

std::shared_ptr<ToneArguments> AddTone(CLI::App& app)
{
    auto arguments = std::make_shared<ToneArguments>();
    AddMac(app, arguments->mac);
    AddNumber(app, "--param", arguments->parameter, "Number that is passed through to the server");
    AddNumber(app, "--extra", arguments->extra, "Another number that is passed through");
    return arguments;
}

Action StartTone(CLI::App& app)
{
    const auto arguments = AddTone(app);
    AddNumber(app, "--channel", arguments->channel, "Channel type");
    return [arguments](const Output&) {
        StartNetSpkTest(arguments->mac.data(), arguments->parameter, arguments->channel, arguments->extra);
        return Sent("StartNetSpkTest", kNotConnected);
    };
}

Action StopTone(CLI::App& app)
{
    const auto arguments = AddTone(app);
    return [arguments](const Output&) {
        StopNetSpkTest(arguments->mac.data(), arguments->parameter, arguments->extra);
        return Sent("StopNetSpkTest", kNotConnected);
    };
}

} // namespace

std::vector<Command> ToneCommands()
{
    return {
        {"tone",
         "Start and stop test tones",
         nullptr,
         {
             {"start", "Start the test of a speaker", StartTone},
             {"stop", "Stop the test of a speaker", StopTone},
         }},
    };
}

std::vector<Command> ToneFunctions()
{
    return {
        {"StartNetSpkTest", "Start the test of a speaker", StartTone},
        {"StopNetSpkTest", "Stop the test of a speaker", StopTone},
    };
}

} // namespace kiv::ctl
