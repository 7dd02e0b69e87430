#include "tools/kivctl/Arguments.h"
#include "tools/kivctl/Completion.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

namespace kiv::ctl {
namespace {

using Identity = std::array<unsigned char, KIV_SOUNDBAR_DEVICE_INFO_LEN>;

constexpr Refusal kNoSoundbar = {
    "the server sent nothing usable, which usually means that it has no such soundbar",
    "otherwise it has another version of the interface"};

constexpr Refusal kUnknownSoundbar = {kUnknownSpeaker.reason, "kivctl soundbar info shows which soundbar there is"};

template <size_t Size>
constexpr std::array<unsigned char, Size> Untouched()
{
    std::array<unsigned char, Size> bytes{};
    bytes.fill(0xff);
    return bytes;
}

// Buffers have these values before a call. If one still has them afterwards, the server sent nothing usable.
constexpr Identity kNoIdentity = Untouched<KIV_SOUNDBAR_DEVICE_INFO_LEN>();
constexpr auto kNoData = Untouched<KIV_SOUND_MODE_LEN>();

struct ModeArguments {
    Mac mac{};
    Ip ip{};
    PayloadArguments data;
};

struct SupportArguments {
    Mac mac{};
    Ip ip{};
    int supported = 0;
};

struct VersionArguments {
    Mac mac{};
    int length = KIV_SOUND_MODE_LEN;
};

std::string MacOf(const Identity& identity)
{
    return HexText(Bytes(identity).first(NETSPK_MAC_LEN), ":");
}

std::string IpOf(const Identity& identity)
{
    return IpText(Bytes(identity).last(NETSPK_IP_LEN));
}

constexpr auto kSoundModeGet = Plain([] {
    Identity identity = kNoIdentity;
    auto data = kNoData;
    const int length = GetSoundbarSoundMode(identity.data(), data.data());
    if (identity == kNoIdentity) {
        return Failed("GetSoundbarSoundMode", length, kNoSoundbar);
    }
    return Done(
        Table(
            {{"mac", MacOf(identity)},
             {"ip", IpOf(identity)},
             {"length", fmt::format("{}{}", length, length == 0 ? " (or one that does not fit the data)" : "")},
             {"data", HexText(data, " ")}}),
        {{"result", length}, {"mac", MacOf(identity)}, {"ip", IpOf(identity)}, {"data", HexText(data, "")}});
});

constexpr auto kSoundModeSet = With<ModeArguments>(
    [](CLI::App& app, ModeArguments& arguments) {
        AddMac(app, arguments.mac);
        AddPayload(app, arguments.data);
        AddIp(app, arguments.ip);
    },
    [](const ModeArguments& arguments) {
        const std::string data = PayloadOf(arguments.data, KIV_SOUNDBAR_DEVICE_INFO_LEN);
        SetSoundbarSoundMode(arguments.mac.data(), IpNumber(arguments.ip), DataOf(data), static_cast<int>(data.size()));
        return Sent("SetSoundbarSoundMode", kUnknownSoundbar);
    });

constexpr auto kSoundbarInfo = Plain([] {
    Identity identity = kNoIdentity;
    const int value = GetSoundbarDeviceInfo(identity.data());
    if (identity == kNoIdentity) {
        return Failed("GetSoundbarDeviceInfo", value, kNoSoundbar);
    }
    return Done(
        Table({{"mac", MacOf(identity)}, {"ip", IpOf(identity)}, {"value", fmt::format("{}", value)}}),
        {{"result", value}, {"mac", MacOf(identity)}, {"ip", IpOf(identity)}});
});

constexpr auto kSupportGet = With<Mac>(AddMac, [](const Mac& mac) {
    return AnsweredYesOrNo("IsSoundbarSupportSoundMode", IsSoundbarSupportSoundMode(mac.data()));
});

constexpr auto kSupportSet = With<SupportArguments>(
    [](CLI::App& app, SupportArguments& arguments) {
        AddMac(app, arguments.mac);
        OfferValues(
            AddRequired(app, "SUPPORTED", arguments.supported, ParseFlag, "yes (1), no (0) or another number"),
            FlagNames());
        AddIp(app, arguments.ip);
    },
    [](const SupportArguments& arguments) {
        SetSoundbarSupportSoundMode(arguments.mac.data(), IpNumber(arguments.ip), arguments.supported);
        return Sent("SetSoundbarSupportSoundMode", kUnknownSoundbar);
    });

constexpr auto kProtocolVersion = With<VersionArguments>(
    [](CLI::App& app, VersionArguments& arguments) {
        AddMac(app, arguments.mac);
        const auto parseLength = [](const std::string& text) { return ParseWithin(text, 1, KIV_SOUND_MODE_LEN); };
        AddParsed(app, "--length", arguments.length, parseLength, "Bytes of version data to ask for, 20 at most")
            ->type_name("N")
            ->default_str(std::to_string(arguments.length));
    },
    [](const VersionArguments& arguments) {
        auto data = kNoData;
        const int version = GetSoundbarProtocolVersion(arguments.mac.data(), data.data(), arguments.length);
        // If the server itself answers -1, there is data.
        if (version == -1 && data == kNoData) {
            return Failed("GetSoundbarProtocolVersion", version, kNoSoundbar);
        }
        const Bytes received = Bytes(data).first(static_cast<size_t>(arguments.length));
        return Done(
            Table({{"version", fmt::format("{}", version)}, {"data", HexText(received, " ")}}),
            {{"result", version}, {"data", HexText(received, "")}});
    });

} // namespace

std::vector<Command> SoundbarCommands()
{
    return {
        Group(
            "soundbar", "Get and set the sound mode of a soundbar",
            {
                Group(
                    "mode", "Get and set the sound mode of the soundbar",
                    {
                        {"get", "Ask for the soundbar and its sound mode", kSoundModeGet},
                        {"set", "Send sound-mode data to the soundbar", kSoundModeSet},
                    }),
                {"info", "Ask for the soundbar", kSoundbarInfo},
                Group(
                    "support", "Get and set whether the soundbar supports sound modes",
                    {
                        {"get", "Ask whether the soundbar supports sound modes", kSupportGet},
                        {"set", "Tell the server whether the soundbar supports sound modes", kSupportSet},
                    }),
                {"version", "Ask for the soundbar's sound-mode protocol version", kProtocolVersion},
            }),
    };
}

std::vector<Command> SoundbarFunctions()
{
    return {
        {"SetSoundbarSoundMode", "Send sound-mode data to a soundbar", kSoundModeSet},
        {"GetSoundbarSoundMode", "Ask for the soundbar and its sound mode", kSoundModeGet},
        {"GetSoundbarDeviceInfo", "Ask for the soundbar", kSoundbarInfo},
        {"SetSoundbarSupportSoundMode", "Tell the server whether a soundbar supports sound modes", kSupportSet},
        {"GetSoundbarProtocolVersion", "Ask for a soundbar's sound-mode protocol version", kProtocolVersion},
        {"IsSoundbarSupportSoundMode", "Ask whether a soundbar supports sound modes", kSupportGet},
    };
}

} // namespace kiv::ctl
