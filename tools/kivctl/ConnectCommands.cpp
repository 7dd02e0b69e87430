#include "Arguments.h"
#include "SpeakerList.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <memory>

namespace kiv::ctl {
namespace {

// The number of characters of an identifier that are sent.
constexpr size_t kIdLength = 5;

constexpr const char* kNewlyConnected = "number of speakers that are newly connected";

struct NewArguments {
    std::vector<std::string> macs;
    bool outdoor = false;
};

struct ByIdArguments {
    int first = 0;
    int second = 0;
    int third = 0;
    std::optional<std::string> id;
};

struct TypeArguments {
    SpeakerArguments speakers;
    std::optional<int> id;
};

void AddMacs(CLI::App& app, std::vector<std::string>& macs)
{
    app.add_option("MAC", macs, "MAC addresses of the speakers")->type_name("")->required();
}

Result ConnectNew(const NewArguments& arguments)
{
    std::vector<unsigned char> macs;
    for (const std::string& text : arguments.macs) {
        const Mac mac = ParseMac(text);
        macs.insert(macs.end(), mac.begin(), mac.end());
    }
    const int count = static_cast<int>(arguments.macs.size());
    return arguments.outdoor
               ? Answered(
                     "AutoConnectNewSpeakersForOutdoor", AutoConnectNewSpeakersForOutdoor(macs.data(), count),
                     kNewlyConnected, kUnknownSpeaker)
               : Answered(
                     "AutoConnectNewSpeakers", AutoConnectNewSpeakers(macs.data(), count), kNewlyConnected,
                     kUnknownSpeaker);
}

Action New(CLI::App& app)
{
    const auto arguments = std::make_shared<NewArguments>();
    AddMacs(app, arguments->macs);
    app.add_flag("--outdoor", arguments->outdoor, "Connect outdoor speakers");
    return [arguments](const Output&) { return ConnectNew(*arguments); };
}

auto NewBy(bool outdoor)
{
    return [outdoor](CLI::App& app) -> Action {
        const auto arguments = std::make_shared<NewArguments>();
        arguments->outdoor = outdoor;
        AddMacs(app, arguments->macs);
        return [arguments](const Output&) { return ConnectNew(*arguments); };
    };
}

Action Direct(CLI::App& app)
{
    const auto parameter = std::make_shared<int>(0);
    AddRequired(app, "N", *parameter, ParseInt, "Number that is passed through to the server");
    return [parameter](const Output&) {
        return Answered("ConnectToSpeakerForInfraLessSetup", ConnectToSpeakerForInfraLessSetup(*parameter));
    };
}

Action ByMobile(CLI::App& app)
{
    const auto arguments = std::make_shared<PayloadArguments>();
    AddPayload(app, *arguments);
    return [arguments](const Output&) {
        const std::string payload = PayloadOf(*arguments, sizeof(uint32_t));
        return Answered(
            "ConnectNetworkSpeakerByMobile",
            ConnectNetworkSpeakerByMobile(DataOf(payload), static_cast<unsigned>(payload.size())));
    };
}

void AddNumbers(CLI::App& app, ByIdArguments& arguments)
{
    AddRequired(
        app, "FIRST", arguments.first, ParseInt,
        "Number that is passed through; the simulated server takes it for the setting mode, such as 80");
    AddRequired(
        app, "SECOND", arguments.second, ParseInt,
        "Number that is passed through; the simulated server takes it for the node number, or for the channel if there "
        "is an "
        "identifier");
    AddRequired(
        app, "THIRD", arguments.third, ParseInt,
        "Number that is passed through; the simulated server takes it for the reason of the start");
}

Result StartById(const ByIdArguments& arguments)
{
    const auto& [first, second, third, id] = arguments;
    if (!id) {
        return AnsweredNotZero(
            "StartNetworkSpeakerByID", StartNetworkSpeakerByID(first, second, third), kPlaying, kUnknownSpeaker);
    }
    if (id->size() < kIdLength) {
        throw BadArguments(fmt::format("the identifier must have {} characters or more, got \"{}\"", kIdLength, *id));
    }
    return AnsweredNotZero(
        "Vireon_StartNetworkSpeakerByID", Vireon_StartNetworkSpeakerByID(id->c_str(), first, second, third), kPlaying,
        kUnknownSpeaker);
}

CLI::Option* AddId(CLI::App& app, const char* name, std::optional<std::string>& id)
{
    return app.add_option(name, id, "Identifier; its first five characters are sent");
}

Action ById(CLI::App& app)
{
    const auto arguments = std::make_shared<ByIdArguments>();
    AddNumbers(app, *arguments);
    AddId(app, "--id", arguments->id)->type_name("ID");
    return [arguments](const Output&) { return StartById(*arguments); };
}

Action ByNumbers(CLI::App& app)
{
    const auto arguments = std::make_shared<ByIdArguments>();
    AddNumbers(app, *arguments);
    return [arguments](const Output&) { return StartById(*arguments); };
}

Action ByIdAndNumbers(CLI::App& app)
{
    const auto arguments = std::make_shared<ByIdArguments>();
    AddId(app, "ID", arguments->id)->type_name("")->required();
    AddNumbers(app, *arguments);
    return [arguments](const Output&) { return StartById(*arguments); };
}

Action Group(CLI::App& app)
{
    const auto parameter = std::make_shared<int>(0);
    AddRequired(
        app, "N", *parameter, ParseInt,
        "Number that is passed through; the simulated server takes it for the group number");
    return [parameter](const Output&) {
        return Answered("StartNetworkSpeakerGroupByMobile", StartNetworkSpeakerGroupByMobile(*parameter), kPlaying);
    };
}

Result AskType(const TypeArguments& arguments)
{
    if (arguments.id) {
        return Answered("GetSpksConnectionTypeByID", GetSpksConnectionTypeByID(*arguments.id), "", kUnknownSpeaker);
    }
    std::vector<STNetSpkConfig> list = SpeakersOf(arguments.speakers);
    return Answered("GetSpksConnectionType", GetSpksConnectionType(&list), "", kUnknownSpeaker);
}

Action Type(CLI::App& app)
{
    const auto arguments = std::make_shared<TypeArguments>();
    AddSpeakers(app, arguments->speakers);
    AddParsed(app, "--id", arguments->id, ParseInt, "Number of one speaker, in place of SPEAKER")
        ->type_name("N")
        ->excludes("SPEAKER")
        ->excludes("--file");
    return [arguments](const Output&) { return AskType(*arguments); };
}

Action TypeOfList(CLI::App& app)
{
    const auto arguments = std::make_shared<TypeArguments>();
    AddSpeakers(app, arguments->speakers);
    return [arguments](const Output&) { return AskType(*arguments); };
}

Action TypeById(CLI::App& app)
{
    const auto arguments = std::make_shared<TypeArguments>();
    AddRequired(app, "N", arguments->id, ParseInt, "Number of the speaker");
    return [arguments](const Output&) { return AskType(*arguments); };
}

} // namespace

std::vector<Command> ConnectCommands()
{
    return {
        {"connect",
         "Connect speakers, and ask how they are connected",
         nullptr,
         {
             {"new", "Connect newly found speakers", New},
             {"direct", "Connect a speaker directly, to set it up without a network", Direct},
             {"by-mobile", "Connect a speaker as a mobile device asks", ByMobile},
             {"by-id", "Start a speaker by numbers, or by its identifier and numbers", ById},
             {"group", "Start a speaker group as a mobile device asks", Group},
             {"type", "Ask how speakers are connected", Type},
         }},
    };
}

std::vector<Command> ConnectFunctions()
{
    return {
        {"ConnectNetworkSpeakerByMobile", "Connect a speaker as a mobile device asks", ByMobile},
        {"Vireon_StartNetworkSpeakerByID", "Start the speaker with an identifier", ByIdAndNumbers},
        {"StartNetworkSpeakerByID", "Start a speaker by numbers", ByNumbers},
        {"GetSpksConnectionTypeByID", "Ask how a speaker is connected", TypeById},
        {"GetSpksConnectionType", "Ask how speakers are connected", TypeOfList},
        {"AutoConnectNewSpeakers", "Connect newly found speakers", NewBy(false)},
        {"AutoConnectNewSpeakersForOutdoor", "Connect newly found outdoor speakers", NewBy(true)},
        {"ConnectToSpeakerForInfraLessSetup", "Connect a speaker directly, to set it up without a network", Direct},
        {"StartNetworkSpeakerGroupByMobile", "Start a speaker group as a mobile device asks", Group},
    };
}

} // namespace kiv::ctl
