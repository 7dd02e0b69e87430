#pragma once

#include "tools/kivctl/Command.h"
#include "tools/kivctl/Values.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace kiv::ctl {

constexpr size_t kMebibyte = 1024UL * 1024;

// The length of the longest array that D-Bus carries.
constexpr size_t kMaxArrayLength = 64 * kMebibyte;

// Adds an option or a positional argument of any type. The function parses its text.
template <typename Value, typename Parse>
CLI::Option*
AddParsed(CLI::App& app, const std::string& name, Value& value, Parse parse, const std::string& description)
{
    const auto read = [name, &value, parse](const std::string& text) {
        try {
            value = parse(text);
        } catch (const BadArguments& error) {
            throw CLI::ValidationError(name, error.what());
        }
    };
    return app.add_option_function<std::string>(name, read, description);
}

// Adds a positional argument that is required.
template <typename Value, typename Parse>
CLI::Option*
AddRequired(CLI::App& app, const std::string& name, Value& value, Parse parse, const std::string& description)
{
    return AddParsed(app, name, value, parse, description)->type_name("")->required();
}

// Adds an option whose default is the current value.
CLI::Option* AddNumber(CLI::App& app, const std::string& name, int& value, const std::string& description);
void AddMac(CLI::App& app, Mac& mac);

// Adds the option of an IP address. The value is an Ip or a std::optional of it.
template <typename Value>
void AddIp(CLI::App& app, Value& ip)
{
    constexpr const char* kDescription =
        "IPv4 address of the one speaker or soundbar, sent together with its MAC address; 0.0.0.0 if you do not know "
        "it. The simulated server uses the MAC address alone";
    AddParsed(app, "--ip", ip, ParseIp, kDescription)->type_name("IP")->default_str(IpText(Ip{}));
}

inline constexpr const char* kModeDescription = "Setting mode: surround (80), multiroom (81) or another number";

// Bytes that are sent to the server unchanged, given in hex or as a file.
struct PayloadArguments {
    std::optional<std::string> hex;
    std::optional<std::string> file;
};

void AddPayload(CLI::App& app, PayloadArguments& arguments);

// Returns the bytes. Throws BadArguments if they are not valid, or if they are too long to be sent together with a head
// of that length.
std::string PayloadOf(const PayloadArguments& arguments, size_t headLength);

// Returns the payload's bytes. The pointer is never null.
const unsigned char* DataOf(const std::string& payload);

// Reads a file, which need not be a regular one. Throws BadArguments if it cannot be read, or has more than this number
// of bytes.
std::string ReadFile(const std::string& path, size_t mostBytes = kMaxArrayLength);

// Parses JSON. Throws BadArguments if it is not valid.
Json ParseJson(const std::string& text);

// Returns a value as a message shows it, shortened.
std::string Shortened(const Json& value);

} // namespace kiv::ctl
