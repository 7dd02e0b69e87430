#include "tools/kivctl/Values.h"

#include "tools/Harmless.h"
#include "tools/WrittenBytes.h"
#include "tools/kivctl/Command.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

namespace kiv::ctl {
namespace {

using Names = std::map<std::string, int32_t>;

const Names kModes = {{"surround", NETSPKSETTING_SURROUND}, {"multiroom", NETSPKSETTING_MULTIROOM}};
const Names kFlags = {{"no", 0}, {"yes", 1}};

constexpr double kMostSeconds = 1e6;
constexpr int32_t kLoudest = 100;

constexpr size_t kDumpWidth = 16;
constexpr const char* kRepeated = "*";

std::optional<int32_t> ReadInt(const std::string& text)
{
    int32_t number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    return read.ec == std::errc() && read.ptr == end ? std::optional(number) : std::nullopt;
}

std::vector<std::string> NamesOf(const Names& names)
{
    std::vector<std::string> texts;
    std::ranges::transform(names, std::back_inserter(texts), &Names::value_type::first);
    return texts;
}

std::string NamesText(const Names& names)
{
    std::vector<std::string> texts;
    for (const auto& [name, value] : names) {
        texts.push_back(fmt::format("{} ({})", name, value));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

int32_t ParseNamed(const Names& names, const std::string& text)
{
    if (const auto named = names.find(text); named != names.end()) {
        return named->second;
    }
    if (const auto number = ReadInt(text)) {
        return *number;
    }
    throw BadArguments(fmt::format("must be {} or another 32-bit integer, got \"{}\"", NamesText(names), text));
}

std::string Printable(Bytes bytes)
{
    std::string text(bytes.begin(), bytes.end());
    std::ranges::replace_if(
        text, [](unsigned char character) { return character < ' ' || character > '~'; }, '.');
    return text;
}

// Returns the number of columns of a terminal that the text takes.
size_t DisplayWidth(const std::string& text)
{
    // The further bytes of a UTF-8 character take no column.
    const auto beginsCharacter = [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) != 0x80U; };
    return static_cast<size_t>(std::ranges::count_if(text, beginsCharacter));
}

} // namespace

int32_t ParseInt(const std::string& text)
{
    if (const auto number = ReadInt(text)) {
        return *number;
    }
    throw BadArguments(fmt::format("must be a 32-bit integer, got \"{}\"", text));
}

std::chrono::milliseconds ParseSeconds(const std::string& text)
{
    double seconds = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, seconds);
    if (read.ec != std::errc() || read.ptr != end || !(seconds > 0 && seconds <= kMostSeconds)) {
        throw BadArguments(
            fmt::format("must be a number of seconds above 0 and not above {:.0f}, got \"{}\"", kMostSeconds, text));
    }
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

int32_t ParseVolume(const std::string& text)
{
    return ParseWithin(text, 0, kLoudest);
}

int32_t ParseMode(const std::string& text)
{
    return ParseNamed(kModes, text);
}

std::vector<std::string> ModeNames()
{
    return NamesOf(kModes);
}

std::vector<std::string> FlagNames()
{
    return NamesOf(kFlags);
}

int32_t ParseWithin(const std::string& text, int32_t least, int32_t most)
{
    const auto number = ReadInt(text);
    if (!number || *number < least || *number > most) {
        throw BadArguments(fmt::format("must be an integer from {} to {}, got \"{}\"", least, most, text));
    }
    return *number;
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
    if (const auto mac = ParseMacAddress(text, 2)) {
        return *mac;
    }
    throw BadArguments(fmt::format("must be a MAC address such as 02:4b:49:56:00:01, got \"{}\"", text));
}

Ip ParseIp(const std::string& text)
{
    if (const auto ip = ParseIpAddress(text)) {
        return *ip;
    }
    throw BadArguments(fmt::format("must be an IPv4 address such as 192.168.0.21, got \"{}\"", text));
}

std::string IpText(Bytes ip)
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
    if (const auto bytes = ParseHexBytes(text)) {
        return {bytes->begin(), bytes->end()};
    }
    throw BadArguments(fmt::format(R"(must be bytes of two hex digits each, such as "01 ff", got "{}")", text));
}

std::string HexText(Bytes bytes, std::string_view separator)
{
    return fmt::format("{:02x}", fmt::join(bytes, separator));
}

std::string HexDump(Bytes bytes)
{
    std::vector<std::string> lines;
    Bytes previous;
    for (size_t at = 0; at < bytes.size(); at += kDumpWidth) {
        const Bytes line = bytes.subspan(at, std::min(kDumpWidth, bytes.size() - at));
        if (!std::ranges::equal(line, previous)) {
            lines.push_back(fmt::format("{:04x}  {:47}  |{}|", at, HexText(line, " "), Printable(line)));
        } else if (lines.back() != kRepeated) {
            lines.emplace_back(kRepeated);
        }
        previous = line;
    }
    return fmt::format("{}", fmt::join(lines, "\n"));
}

std::string FieldText(std::span<const char> field)
{
    return {field.begin(), std::ranges::find(field, '\0')};
}

std::string Table(const std::vector<std::pair<std::string, std::string>>& rows)
{
    std::vector<std::vector<std::string>> cells;
    std::ranges::transform(rows, std::back_inserter(cells), [](const auto& row) {
        return std::vector<std::string>{Harmless(row.first), Harmless(row.second)};
    });
    return Columns(cells);
}

std::string Columns(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], DisplayWidth(row[i]));
        }
    }
    std::vector<std::string> lines;
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i + 1 < row.size(); ++i) {
            line += row[i] + std::string(widths[i] - DisplayWidth(row[i]) + 2, ' ');
        }
        lines.push_back(line + (row.empty() ? "" : row.back()));
    }
    return fmt::format("{}", fmt::join(lines, "\n"));
}

} // namespace kiv::ctl
