#include "tools/kivctl/Arguments.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace kiv::ctl {
namespace {

std::string ReadPayload(const PayloadArguments& arguments)
{
    if (arguments.hex.has_value() == arguments.file.has_value()) {
        throw BadArguments(
            fmt::format("the bytes must be given as HEX or in --file, got {}", arguments.hex ? "both" : "neither"));
    }
    return arguments.hex ? ParseHex(*arguments.hex) : ReadFile(*arguments.file);
}

} // namespace

CLI::Option* AddNumber(CLI::App& app, const std::string& name, int& value, const std::string& description)
{
    return AddParsed(app, name, value, ParseInt, description)->type_name("N")->default_str(std::to_string(value));
}

void AddMac(CLI::App& app, Mac& mac)
{
    AddRequired(app, "MAC", mac, ParseMac, "MAC address of the speaker or soundbar, such as 02:4b:49:56:00:01");
}

void AddPayload(CLI::App& app, PayloadArguments& arguments)
{
    app.add_option("HEX", arguments.hex, "The bytes, two hex digits each")->type_name("");
    app.add_option("--file", arguments.file, "File that holds the bytes, in place of HEX")->type_name("FILE");
}

std::string PayloadOf(const PayloadArguments& arguments, size_t headLength)
{
    std::string bytes = ReadPayload(arguments);
    if (bytes.size() > kMaxArrayLength - headLength) {
        throw BadArguments(fmt::format("{} bytes are more than the bus carries", bytes.size()));
    }
    return bytes;
}

const unsigned char* DataOf(const std::string& payload)
{
    return reinterpret_cast<const unsigned char*>(payload.data());
}

std::string ReadFile(const std::string& path, size_t mostBytes)
{
    const auto failed = [&path] { return BadArguments(fmt::format("{}: {}", path, std::strerror(errno))); };
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rbe"), std::fclose);
    if (file == nullptr) {
        throw failed();
    }
    std::string contents;
    std::array<char, 65536> chunk{};
    while (const size_t length = std::fread(chunk.data(), 1, chunk.size(), file.get())) {
        if (length > mostBytes - contents.size()) {
            throw BadArguments(
                fmt::format("{}: must be a file of at most {} MiB, got more", path, mostBytes / kMebibyte));
        }
        contents.append(chunk.data(), length);
    }
    if (std::ferror(file.get()) != 0) {
        throw failed();
    }
    return contents;
}

Json ParseJson(const std::string& text)
{
    try {
        return Json::parse(text);
    } catch (const Json::exception& error) {
        // The texts begin with "[json.exception.parse_error.101] " or similar.
        const char* reason = std::strstr(error.what(), "] ");
        throw BadArguments(reason == nullptr ? error.what() : reason + 2);
    }
}

std::string Shortened(const Json& value)
{
    constexpr size_t kMost = 60;
    const std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
    return text.size() <= kMost ? text : text.substr(0, kMost) + "...";
}

} // namespace kiv::ctl
