#include "SpeakerList.h"

#include "Command.h"

#include <fmt/format.h>

#include <cctype>
#include <charconv>
#include <cstring>
#include <utility>

namespace kiv::ctl {
namespace {

constexpr size_t kMacTextLength = NETSPK_MAC_LEN * 3 - 1;

bool IsMac(const std::string& text)
{
    if (text.size() != kMacTextLength) {
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        const bool fits = i % 3 == 2 ? text[i] == ':' : std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
        if (!fits) {
            return false;
        }
    }
    return true;
}

STNetSpkConfig MakeSpeaker(const std::string& mac, int32_t config)
{
    if (!IsMac(mac)) {
        throw BadArguments(
            fmt::format("\"{}\" is no MAC address (six two-digit hex bytes with ':' between them)", mac));
    }
    STNetSpkConfig speaker{};
    speaker.nConfig = config;
    for (size_t i = 0; i < NETSPK_MAC_LEN; ++i) {
        const char* digits = mac.data() + i * 3;
        std::from_chars(digits, digits + 2, speaker.mac[i], 16);
    }
    return speaker;
}

int32_t ParseConfig(const std::string& text)
{
    int32_t config = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, config);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        throw BadArguments(fmt::format("\"{}\" is no configuration value (a 32-bit integer)", text));
    }
    return config;
}

int32_t ReadConfig(const Json& value)
{
    const bool fits = value.is_number_unsigned()  ? std::in_range<int32_t>(value.get<uint64_t>())
                      : value.is_number_integer() ? std::in_range<int32_t>(value.get<int64_t>())
                                                  : false;
    if (!fits) {
        throw BadArguments(fmt::format("\"config\" is {}, not a 32-bit integer", value.dump()));
    }
    return value.get<int32_t>();
}

std::string ReadMac(const Json& value)
{
    if (!value.is_string()) {
        throw BadArguments(fmt::format("\"mac\" is {}, not a string", value.dump()));
    }
    return value.get<std::string>();
}

STNetSpkConfig ReadSpeakerObject(const Json& object)
{
    for (const auto& member : object.items()) {
        if (member.key() != "mac" && member.key() != "config") {
            throw BadArguments(fmt::format("unknown key \"{}\"", member.key()));
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
    throw BadArguments(fmt::format("{} is neither a string nor an object", entry.dump()));
}

std::string ReadFile(const std::string& path)
{
    g_autofree char* contents = nullptr;
    gsize length = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_file_get_contents(path.c_str(), &contents, &length, &error)) {
        throw BadArguments(error->message);
    }
    return {contents, length};
}

Json ParseJson(const std::string& path, const std::string& text)
{
    try {
        return Json::parse(text);
    } catch (const Json::exception& error) {
        // Its texts begin like "[json.exception.parse_error.101] ".
        const char* reason = std::strstr(error.what(), "] ");
        throw BadArguments(fmt::format("{}: {}", path, reason == nullptr ? error.what() : reason + 2));
    }
}

} // namespace

STNetSpkConfig ParseSpeaker(const std::string& text)
{
    const size_t separator = text.find('=');
    if (separator == std::string::npos) {
        return MakeSpeaker(text, 0);
    }
    return MakeSpeaker(text.substr(0, separator), ParseConfig(text.substr(separator + 1)));
}

std::vector<STNetSpkConfig> ReadSpeakerFile(const std::string& path)
{
    const Json list = ParseJson(path, ReadFile(path));
    if (!list.is_array()) {
        throw BadArguments(fmt::format("{}: not a JSON array of speakers", path));
    }
    std::vector<STNetSpkConfig> speakers;
    for (const Json& entry : list) {
        try {
            speakers.push_back(ReadSpeaker(entry));
        } catch (const BadArguments& error) {
            throw BadArguments(fmt::format("{}: entry {}: {}", path, speakers.size() + 1, error.what()));
        }
    }
    return speakers;
}

} // namespace kiv::ctl
