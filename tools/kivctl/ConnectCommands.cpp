#include "tools/kivctl/Arguments.h"
#include "tools/kivctl/SpeakerList.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

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

constexpr auto kConnectNew = With<NewArguments>(
    [](CLI::App& app, NewArguments& arguments) {
        AddMacs(app, arguments.macs);
        app.add_flag("--outdoor", arguments.outdoor, "Connect outdoor speakers");
    },
    ConnectNew);

constexpr auto kConnectIndoor = With<std::vector<std::string>>(AddMacs, [](const auto& macs) {
    return ConnectNew({macs, false});
});
constexpr auto kConnectOutdoor = With<std::vector<std::string>>(AddMacs, [](const auto& macs) {
    return ConnectNew({macs, true});
});

constexpr auto kConnectDirect = With<int>(
    [](CLI::App& app, int& number) {
        AddRequired(app, "N", number, ParseInt, "Number that is passed through to the server");
    },
    [](int number) {
        return Answered("ConnectToSpeakerForInfraLessSetup", ConnectToSpeakerForInfraLessSetup(number));
    });

constexpr auto kConnectByMobile = With<PayloadArguments>(AddPayload, [](const PayloadArguments& arguments) {
    const std::string payload = PayloadOf(arguments, sizeof(uint32_t));
    return Answered(
        "ConnectNetworkSpeakerByMobile",
        ConnectNetworkSpeakerByMobile(DataOf(payload), static_cast<unsigned>(payload.size())));
});

void AddNumbers(CLI::App& app, ByIdArguments& arguments)
{
    AddRequired(
        app, "FIRST", arguments.first, ParseInt,
        "Number that is passed through; the simulated server takes it for the setting mode, such as 80");
    AddRequired(
        app, "SECOND", arguments.second, ParseInt,
        "Number that is passed through; the simulated server takes it for the node number, or for the channel if there "
        "is an identifier");
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

constexpr auto kStartById = With<ByIdArguments>(
    [](CLI::App& app, ByIdArguments& arguments) {
        AddNumbers(app, arguments);
        AddId(app, "--id", arguments.id)->type_name("ID");
    },
    StartById);

constexpr auto kStartByNumbers = With<ByIdArguments>(AddNumbers, StartById);

constexpr auto kStartByIdAndNumbers = With<ByIdArguments>(
    [](CLI::App& app, ByIdArguments& arguments) {
        AddId(app, "ID", arguments.id)->type_name("")->required();
        AddNumbers(app, arguments);
    },
    StartById);

constexpr auto kStartGroup = With<int>(
    [](CLI::App& app, int& number) {
        AddRequired(
            app, "N", number, ParseInt,
            "Number that is passed through; the simulated server takes it for the group number");
    },
    [](int number) {
        return Answered("StartNetworkSpeakerGroupByMobile", StartNetworkSpeakerGroupByMobile(number), kPlaying);
    });

Result AskTypeOfList(const SpeakerArguments& speakers)
{
    std::vector<STNetSpkConfig> list = SpeakersOf(speakers);
    return Answered("GetSpksConnectionType", GetSpksConnectionType(&list), "", kUnknownSpeaker);
}

Result AskTypeById(int id)
{
    return Answered("GetSpksConnectionTypeByID", GetSpksConnectionTypeByID(id), "", kUnknownSpeaker);
}

constexpr auto kConnectionType = With<TypeArguments>(
    [](CLI::App& app, TypeArguments& arguments) {
        AddSpeakers(app, arguments.speakers);
        AddParsed(app, "--id", arguments.id, ParseInt, "Number of one speaker, in place of SPEAKER")
            ->type_name("N")
            ->excludes("SPEAKER")
            ->excludes("--file");
    },
    [](const TypeArguments& arguments) {
        return arguments.id ? AskTypeById(*arguments.id) : AskTypeOfList(arguments.speakers);
    });

constexpr auto kConnectionTypeOfList = With<SpeakerArguments>(AddSpeakers, AskTypeOfList);

constexpr auto kConnectionTypeById = With<int>(
    [](CLI::App& app, int& id) { AddRequired(app, "N", id, ParseInt, "Number of the speaker"); }, AskTypeById);

} // namespace

std::vector<Command> ConnectCommands()
{
    return {
        Group(
            "connect", "Connect speakers, and ask how they are connected",
            {
                {"new", "Connect newly found speakers", kConnectNew},
                {"direct", "Connect a speaker directly, to set it up without a network", kConnectDirect},
                {"by-mobile", "Connect a speaker as a mobile device asks", kConnectByMobile},
                {"by-id", "Start a speaker by numbers, or by its identifier and numbers", kStartById},
                {"group", "Start a speaker group as a mobile device asks", kStartGroup},
                {"type", "Ask how speakers are connected", kConnectionType},
            }),
    };
}

std::vector<Command> ConnectFunctions()
{
    return {
        {"ConnectNetworkSpeakerByMobile", "Connect a speaker as a mobile device asks", kConnectByMobile},
        {"Vireon_StartNetworkSpeakerByID", "Start the speaker with an identifier", kStartByIdAndNumbers},
        {"StartNetworkSpeakerByID", "Start a speaker by numbers", kStartByNumbers},
        {"GetSpksConnectionTypeByID", "Ask how a speaker is connected", kConnectionTypeById},
        {"GetSpksConnectionType", "Ask how speakers are connected", kConnectionTypeOfList},
        {"AutoConnectNewSpeakers", "Connect newly found speakers", kConnectIndoor},
        {"AutoConnectNewSpeakersForOutdoor", "Connect newly found outdoor speakers", kConnectOutdoor},
        {"ConnectToSpeakerForInfraLessSetup", "Connect a speaker directly, to set it up without a network",
         kConnectDirect},
        {"StartNetworkSpeakerGroupByMobile", "Start a speaker group as a mobile device asks", kStartGroup},
    };
}

} // namespace kiv::ctl
