#include "tools/kivctl/SpeakerList.h"

#include "tools/kivctl/Arguments.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace kiv::ctl {
namespace {

STNetSpkConfig MakeSpeaker(const std::string& mac, int32_t config)
{
    STNetSpkConfig speaker{};
    speaker.nConfig = config;
    std::ranges::copy(ParseMac(mac), speaker.mac);
    return speaker;
}

STNetSpkConfig ParseSpeaker(const std::string& text)
{
    const size_t separator = text.find('=');
    if (separator == std::string::npos) {
        return MakeSpeaker(text, 0);
    }
    return MakeSpeaker(text.substr(0, separator), ParseInt(text.substr(separator + 1)));
}

int32_t ReadConfig(const Json& value)
{
    const bool fits = value.is_number_unsigned()  ? std::in_range<int32_t>(value.get<uint64_t>())
                      : value.is_number_integer() ? std::in_range<int32_t>(value.get<int64_t>())
                                                  : false;
    if (!fits) {
        throw BadArguments(fmt::format("\"config\" must be a 32-bit integer, got {}", Shortened(value)));
    }
    return value.get<int32_t>();
}

std::string ReadMac(const Json& value)
{
    if (!value.is_string()) {
        throw BadArguments(fmt::format("\"mac\" must be a text, got {}", Shortened(value)));
    }
    return value.get<std::string>();
}

STNetSpkConfig ReadSpeakerObject(const Json& object)
{
    for (const auto& member : object.items()) {
        if (member.key() != "mac" && member.key() != "config") {
            throw BadArguments(fmt::format("unknown key \"{}\"; known are config, mac", member.key()));
        }
    }
    if (!object.contains("mac")) {
        throw BadArguments("\"mac\" is missing");
    }
    return MakeSpeaker(ReadMac(object.at("mac")), object.contains("config") ? ReadConfig(object.at("config")) : 0);
}

STNetSpkConfig ReadSpeaker(const Json& entry)
{
    if (entry.is_string()) {
        return ParseSpeaker(entry.get<std::string>());
    }
    if (entry.is_object()) {
        return ReadSpeakerObject(entry);
    }
    throw BadArguments(
        fmt::format(R"(must be "MAC=CONFIG" or an object with "mac" and "config", got {})", Shortened(entry)));
}

std::vector<STNetSpkConfig> ReadSpeakers(const Json& list)
{
    if (!list.is_array()) {
        throw BadArguments(fmt::format("must be a JSON array of speakers, got {}", Shortened(list)));
    }
    if (list.size() > kMaxArrayLength / sizeof(STNetSpkConfig)) {
        throw BadArguments(fmt::format("{} speakers are more than the bus carries", list.size()));
    }
    std::vector<STNetSpkConfig> speakers;
    for (const Json& entry : list) {
        try {
            speakers.push_back(ReadSpeaker(entry));
        } catch (const BadArguments& error) {
            throw BadArguments(fmt::format("entry {}: {}", speakers.size() + 1, error.what()));
        }
    }
    return speakers;
}

std::vector<STNetSpkConfig> ReadSpeakerFile(const std::string& path)
{
    const std::string text = ReadFile(path);
    try {
        return ReadSpeakers(ParseJson(text));
    } catch (const BadArguments& error) {
        throw BadArguments(fmt::format("{}: {}", path, error.what()));
    }
}

} // namespace

void AddSpeakers(CLI::App& app, SpeakerArguments& arguments)
{
    app.add_option("SPEAKER", arguments.speakers, "Speaker as MAC[=CONFIG], such as 02:4b:49:56:00:01=3")
        ->type_name("");
    app.add_option(
           "--file", arguments.file,
           R"(JSON file in place of SPEAKER: a list of {"mac": "...", "config": N} or "MAC=CONFIG")")
        ->type_name("LIST");
}

std::vector<STNetSpkConfig> SpeakersOf(const SpeakerArguments& arguments)
{
    if (arguments.speakers.empty() == arguments.file.empty()) {
        throw BadArguments(fmt::format(
            "speakers must be named as SPEAKER or in --file, got {}", arguments.file.empty() ? "neither" : "both"));
    }
    if (!arguments.file.empty()) {
        return ReadSpeakerFile(arguments.file);
    }
    std::vector<STNetSpkConfig> list;
    std::ranges::transform(arguments.speakers, std::back_inserter(list), ParseSpeaker);
    return list;
}

} // namespace kiv::ctl
