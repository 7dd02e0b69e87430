#pragma once

#include <KivServiceInterface.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kiv::ctl {

/*
 * Values as they are written on the command line and shown. What parses throws BadArguments.
 */

using Mac = std::array<unsigned char, NETSPK_MAC_LEN>;
using Ip = std::array<unsigned char, NETSPK_IP_LEN>;
using Bytes = std::span<const unsigned char>;

int32_t ParseInt(const std::string& text);

// More than 0, with or without a fraction.
std::chrono::milliseconds ParseSeconds(const std::string& text);

// From 0 to 100.
int32_t ParseVolume(const std::string& text);

// "surround", "multiroom", or a number.
int32_t ParseMode(const std::string& text);
std::vector<std::string> ModeNames();
std::string ModeText(int mode);

// "yes", "no", or a number.
int32_t ParseFlag(const std::string& text);
std::vector<std::string> FlagNames();

// An integer from the least to the most.
int32_t ParseWithin(const std::string& text, int32_t least, int32_t most);

// Six two-digit hex bytes with ':' between them.
Mac ParseMac(const std::string& text);

// Dotted.
Ip ParseIp(const std::string& text);
std::string IpText(const Ip& ip);

// The first octet in the lowest byte.
int IpNumber(const Ip& ip);

// Two hex digits a byte; there may be blanks between bytes.
std::string ParseHex(const std::string& text);
std::string HexText(Bytes bytes, std::string_view separator);

// A line for 16 bytes, with their offset and as characters. "*" stands for lines that repeat the one before.
std::string HexDump(Bytes bytes);

// A text field that need not end with NUL.
std::string FieldText(std::span<const char> field);

// A line for each name and value, without control characters.
std::string Table(const std::vector<std::pair<std::string, std::string>>& rows);

// A line for each row, with columns that are as wide as they need to be. All rows have the same number of columns.
std::string Columns(const std::vector<std::vector<std::string>>& rows);

} // namespace kiv::ctl
