#pragma once

#include "Command.h"
#include "Values.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace kiv::ctl {

constexpr size_t kMebibyte = 1024UL * 1024;

// D-Bus carries no longer array.
constexpr size_t kMaxArrayLength = 64 * kMebibyte;

// An option or a positional argument of any type, of whose text a function makes its value.
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

// A positional argument that has to be there.
template <typename Value, typename Parse>
CLI::Option*
AddRequired(CLI::App& app, const std::string& name, Value& value, Parse parse, const std::string& description)
{
    return AddParsed(app, name, value, parse, description)->type_name("")->required();
}

// The value given is the default.
CLI::Option* AddNumber(CLI::App& app, const std::string& name, int& value, const std::string& description);
void AddMac(CLI::App& app, Mac& mac);

// The value is an Ip, or an optional one.
template <typename Value>
void AddIp(CLI::App& app, Value& ip)
{
    constexpr const char* kDescription =
        "IPv4 address of the one speaker or soundbar, sent together with its MAC address; 0.0.0.0 if you do not know "
        "it. The simulated server uses the MAC address alone";
    AddParsed(app, "--ip", ip, ParseIp, kDescription)->type_name("IP")->default_str(IpText(Ip{}));
}

inline constexpr const char* kModeDescription = "Setting mode: surround (80), multiroom (81) or another number";

// Bytes that travel to the server as they are, in hex or from a file.
struct PayloadArguments {
    std::optional<std::string> hex;
    std::optional<std::string> file;
};

void AddPayload(CLI::App& app, PayloadArguments& arguments);

// Throws BadArguments, also if the bytes and a head of that length are too long to be sent.
std::string PayloadOf(const PayloadArguments& arguments, size_t headLength);

// Never null.
const unsigned char* DataOf(const std::string& payload);

// Throws BadArguments, also if the file is longer than that. It need not be a regular file.
std::string ReadFile(const std::string& path, size_t mostBytes = kMaxArrayLength);

// Throws BadArguments.
Json ParseJson(const std::string& text);

// A value as a message shows it.
std::string Shortened(const Json& value);

} // namespace kiv::ctl
