#include "Arguments.h"

#include <fmt/format.h>

namespace kiv::ctl {
namespace {

std::string ReadPayload(const PayloadArguments& arguments)
{
    if (arguments.hex.has_value() == arguments.file.has_value()) {
        throw BadArguments("give the bytes in hex, or the file that holds them");
    }
    return arguments.hex ? ParseHex(*arguments.hex) : ReadFile(*arguments.file);
}

} // namespace

CLI::Option* AddNumber(CLI::App& app, const std::string& name, int& value, const std::string& description)
{
    return AddParsed(app, name, value, ParseInt, description)->type_name("N")->default_str(std::to_string(value));
}

void AddIp(CLI::App& app, Ip& ip)
{
    AddParsed(app, "--ip", ip, ParseIp, "IPv4 address")->type_name("IP")->default_str(IpText(ip));
}

void AddPayload(CLI::App& app, PayloadArguments& arguments)
{
    app.add_option("HEX", arguments.hex, "The bytes, two hex digits each")->type_name("");
    app.add_option("--file", arguments.file, "File that holds the bytes instead")->type_name("FILE");
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

} // namespace kiv::ctl
