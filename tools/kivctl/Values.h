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

// Converts values from the command line, and for display. The Parse functions throw BadArguments for a text that is not
// valid.

using Mac = std::array<unsigned char, NETSPK_MAC_LEN>;
using Ip = std::array<unsigned char, NETSPK_IP_LEN>;
using Bytes = std::span<const unsigned char>;

int32_t ParseInt(const std::string& text);

// Parses a number of seconds above 0, with or without a fraction.
std::chrono::milliseconds ParseSeconds(const std::string& text);

// Parses a number from 0 to 100.
int32_t ParseVolume(const std::string& text);

// Parses "surround", "multiroom", or a number.
int32_t ParseMode(const std::string& text);
std::vector<std::string> ModeNames();
std::string ModeText(int mode);

// Parses "yes", "no", or a number.
int32_t ParseFlag(const std::string& text);
std::vector<std::string> FlagNames();

// Parses an integer from the least to the most.
int32_t ParseWithin(const std::string& text, int32_t least, int32_t most);

// Parses six two-digit hex bytes with ':' between them.
Mac ParseMac(const std::string& text);

// Parses four numbers with '.' between them.
Ip ParseIp(const std::string& text);
std::string IpText(Bytes ip);

// Returns the address as an int with the first octet in the lowest byte.
int IpNumber(const Ip& ip);

// Parses bytes of two hex digits each. There may be blanks between bytes.
std::string ParseHex(const std::string& text);
std::string HexText(Bytes bytes, std::string_view separator);

// Returns a line for each 16 bytes, with their offset and as characters. "*" stands for lines that repeat the line
// before.
std::string HexDump(Bytes bytes);

// Returns the text in a field that need not end with NUL.
std::string FieldText(std::span<const char> field);

// Returns a line for each name and value, without control characters.
std::string Table(const std::vector<std::pair<std::string, std::string>>& rows);

// Returns a line for each row, with columns of equal width. All rows must have the same number of columns.
std::string Columns(const std::vector<std::vector<std::string>>& rows);

} // namespace kiv::ctl
