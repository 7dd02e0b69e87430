#include "Arguments.h"
#include "Completion.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <algorithm>
#include <memory>

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
    Ip ip{};
    std::ranges::copy(Bytes(identity).last(NETSPK_IP_LEN), ip.begin());
    return IpText(ip);
}

Action ModeGet(CLI::App&)
{
    return [](const Output&) {
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
    };
}

Action ModeSet(CLI::App& app)
{
    const auto arguments = std::make_shared<ModeArguments>();
    AddMac(app, arguments->mac);
    AddPayload(app, arguments->data);
    AddIp(app, arguments->ip);
    return [arguments](const Output&) {
        const auto& [mac, ip, payload] = *arguments;
        const std::string data = PayloadOf(payload, KIV_SOUNDBAR_DEVICE_INFO_LEN);
        SetSoundbarSoundMode(mac.data(), IpNumber(ip), DataOf(data), static_cast<int>(data.size()));
        return Sent("SetSoundbarSoundMode", kUnknownSoundbar);
    };
}

Action Info(CLI::App&)
{
    return [](const Output&) {
        Identity identity = kNoIdentity;
        const int value = GetSoundbarDeviceInfo(identity.data());
        if (identity == kNoIdentity) {
            return Failed("GetSoundbarDeviceInfo", value, kNoSoundbar);
        }
        return Done(
            Table({{"mac", MacOf(identity)}, {"ip", IpOf(identity)}, {"value", fmt::format("{}", value)}}),
            {{"result", value}, {"mac", MacOf(identity)}, {"ip", IpOf(identity)}});
    };
}

Action SupportGet(CLI::App& app)
{
    const auto mac = std::make_shared<Mac>();
    AddMac(app, *mac);
    return [mac](const Output&) {
        return AnsweredYesOrNo("IsSoundbarSupportSoundMode", IsSoundbarSupportSoundMode(mac->data()));
    };
}

Action SupportSet(CLI::App& app)
{
    const auto arguments = std::make_shared<SupportArguments>();
    AddMac(app, arguments->mac);
    OfferValues(
        AddRequired(app, "SUPPORTED", arguments->supported, ParseFlag, "yes (1), no (0) or another number"),
        FlagNames());
    AddIp(app, arguments->ip);
    return [arguments](const Output&) {
        SetSoundbarSupportSoundMode(arguments->mac.data(), IpNumber(arguments->ip), arguments->supported);
        return Sent("SetSoundbarSupportSoundMode", kUnknownSoundbar);
    };
}

Action Version(CLI::App& app)
{
    const auto arguments = std::make_shared<VersionArguments>();
    AddMac(app, arguments->mac);
    const auto parseLength = [](const std::string& text) { return ParseWithin(text, 1, KIV_SOUND_MODE_LEN); };
    AddParsed(app, "--length", arguments->length, parseLength, "Bytes of version data to ask for, 20 at most")
        ->type_name("N")
        ->default_str(std::to_string(arguments->length));
    return [arguments](const Output&) {
        auto data = kNoData;
        const int version = GetSoundbarProtocolVersion(arguments->mac.data(), data.data(), arguments->length);
        // If the server itself answers -1, there is data.
        if (version == -1 && data == kNoData) {
            return Failed("GetSoundbarProtocolVersion", version, kNoSoundbar);
        }
        const Bytes received = Bytes(data).first(static_cast<size_t>(arguments->length));
        return Done(
            Table({{"version", fmt::format("{}", version)}, {"data", HexText(received, " ")}}),
            {{"result", version}, {"data", HexText(received, "")}});
    };
}

} // namespace

std::vector<Command> SoundbarCommands()
{
    return {
        {"soundbar",
         "Get and set the sound mode of a soundbar",
         nullptr,
         {
             {"mode",
              "Get and set the sound mode of the soundbar",
              nullptr,
              {
                  {"get", "Ask for the soundbar and its sound mode", ModeGet},
                  {"set", "Send sound-mode data to the soundbar", ModeSet},
              }},
             {"info", "Ask for the soundbar", Info},
             {"support",
              "Get and set whether the soundbar supports sound modes",
              nullptr,
              {
                  {"get", "Ask whether the soundbar supports sound modes", SupportGet},
                  {"set", "Tell the server whether the soundbar supports sound modes", SupportSet},
              }},
             {"version", "Ask for the soundbar's sound-mode protocol version", Version},
         }},
    };
}

std::vector<Command> SoundbarFunctions()
{
    return {
        {"SetSoundbarSoundMode", "Send sound-mode data to a soundbar", ModeSet},
        {"GetSoundbarSoundMode", "Ask for the soundbar and its sound mode", ModeGet},
        {"GetSoundbarDeviceInfo", "Ask for the soundbar", Info},
        {"SetSoundbarSupportSoundMode", "Tell the server whether a soundbar supports sound modes", SupportSet},
        {"GetSoundbarProtocolVersion", "Ask for a soundbar's sound-mode protocol version", Version},
        {"IsSoundbarSupportSoundMode", "Ask whether a soundbar supports sound modes", SupportGet},
    };
}

} // namespace kiv::ctl
