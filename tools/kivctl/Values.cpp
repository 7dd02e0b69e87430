#include "Values.h"

#include "Command.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>
#include <optional>
#include <utility>

namespace kiv::ctl {
namespace {

using Names = std::map<std::string, int32_t>;

const Names kModes = {{"surround", NETSPKSETTING_SURROUND}, {"multiroom", NETSPKSETTING_MULTIROOM}};
const Names kFlags = {{"no", 0}, {"yes", 1}};

constexpr size_t kDumpWidth = 16;

std::optional<int32_t> ReadInt(const std::string& text)
{
    int32_t number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    return read.ec == std::errc() && read.ptr == end ? std::optional(number) : std::nullopt;
}

int32_t ParseNamed(const Names& names, const std::string& text)
{
    if (const auto named = names.find(text); named != names.end()) {
        return named->second;
    }
    if (const auto number = ReadInt(text)) {
        return *number;
    }
    throw BadArguments(fmt::format("\"{}\" is neither a known word nor a 32-bit integer", text));
}

std::optional<unsigned char> ParseHexByte(std::string_view digits)
{
    const auto isDigit = [](unsigned char character) { return std::isxdigit(character) != 0; };
    if (digits.size() != 2 || !std::ranges::all_of(digits, isDigit)) {
        return std::nullopt;
    }
    unsigned char byte = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    return byte;
}

std::string Printable(Bytes bytes)
{
    std::string text(bytes.begin(), bytes.end());
    std::ranges::replace_if(
        text, [](unsigned char character) { return character < ' ' || character > '~'; }, '.');
    return text;
}

} // namespace

int32_t ParseInt(const std::string& text)
{
    if (const auto number = ReadInt(text)) {
        return *number;
    }
    throw BadArguments(fmt::format("\"{}\" is no 32-bit integer", text));
}

int32_t ParseMode(const std::string& text)
{
    return ParseNamed(kModes, text);
}

std::string ModeText(int mode)
{
    const auto named = std::ranges::find(kModes, mode, &Names::value_type::second);
    return named != kModes.end() ? fmt::format("{} ({})", mode, named->first) : fmt::format("{}", mode);
}

int32_t ParseFlag(const std::string& text)
{
    return ParseNamed(kFlags, text);
}

Mac ParseMac(const std::string& text)
{
    Mac mac{};
    bool fits = text.size() == 3 * mac.size() - 1;
    for (size_t i = 0; fits && i < mac.size(); ++i) {
        const auto byte = ParseHexByte(std::string_view(text).substr(3 * i, 2));
        fits = byte && (i == 0 || text[3 * i - 1] == ':');
        mac[i] = byte.value_or(0);
    }
    if (!fits) {
        throw BadArguments(
            fmt::format("\"{}\" is no MAC address (six two-digit hex bytes with ':' between them)", text));
    }
    return mac;
}

Ip ParseIp(const std::string& text)
{
    Ip ip{};
    if (inet_pton(AF_INET, text.c_str(), ip.data()) != 1) {
        throw BadArguments(fmt::format("\"{}\" is no IPv4 address", text));
    }
    return ip;
}

std::string IpText(const Ip& ip)
{
    return fmt::format("{}", fmt::join(ip, "."));
}

int IpNumber(const Ip& ip)
{
    unsigned number = 0;
    for (size_t i = ip.size(); i > 0; --i) {
        number = number << 8U | ip[i - 1];
    }
    return static_cast<int>(number);
}

std::string ParseHex(const std::string& text)
{
    std::string bytes;
    for (size_t at = 0; at < text.size();) {
        if (text[at] == ' ') {
            ++at;
            continue;
        }
        const auto byte = ParseHexByte(std::string_view(text).substr(at, 2));
        if (!byte) {
            throw BadArguments(fmt::format("\"{}\" are no bytes (two hex digits each)", text));
        }
        bytes += static_cast<char>(*byte);
        at += 2;
    }
    return bytes;
}

std::string HexText(Bytes bytes, std::string_view separator)
{
    return fmt::format("{:02x}", fmt::join(bytes, separator));
}

std::string HexDump(Bytes bytes)
{
    std::string dump;
    for (size_t at = 0; at < bytes.size(); at += kDumpWidth) {
        const Bytes line = bytes.subspan(at, std::min(kDumpWidth, bytes.size() - at));
        dump += fmt::format("{}{:04x}  {:47}  |{}|", at == 0 ? "" : "\n", at, HexText(line, " "), Printable(line));
    }
    return dump;
}

std::string FieldText(std::span<const char> field)
{
    return {field.begin(), std::ranges::find(field, '\0')};
}

std::string Table(const std::vector<std::pair<std::string, std::string>>& rows)
{
    size_t width = 0;
    for (const auto& row : rows) {
        width = std::max(width, row.first.size());
    }
    std::vector<std::string> lines;
    for (const auto& [name, value] : rows) {
        std::string line = fmt::format("{:{}}  {}", name, width, value);
        std::ranges::replace_if(
            line, [](unsigned char character) { return std::iscntrl(character) != 0; }, '?');
        lines.push_back(std::move(line));
    }
    return fmt::format("{}", fmt::join(lines, "\n"));
}

} // namespace kiv::ctl
