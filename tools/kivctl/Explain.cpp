#include "Explain.h"

#include "LogLines.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

namespace kiv::ctl {
namespace {

// A longer line is read in pieces.
constexpr size_t kLongestLine = 65536;

constexpr std::string_view kFile = "KivServiceInterface.cpp: ";

struct Logged {
    std::string_view function;
    std::string text;
};

// Each log puts something else before the library's part, "FILE: FUNCTION(LINE) > TEXT".
std::optional<Logged> LoggedBy(std::string_view line)
{
    const size_t file = line.find(kFile);
    if (file == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view part = line.substr(file + kFile.size());
    const size_t parenthesis = part.find('(');
    const size_t arrow = part.find(") > ");
    if (parenthesis == std::string_view::npos || arrow == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view text = part.substr(arrow + std::strlen(") > "));
    return Logged{part.substr(0, parenthesis), std::string(text.substr(0, text.find_last_not_of(" \r") + 1))};
}

void ShowLine(const std::string& line, const Output& output)
{
    std::string text = line;
    Json object = {{"line", line}};
    if (const auto logged = LoggedBy(line)) {
        const LogLine* known = FindLogLine(logged->function, logged->text);
        const std::string meaning = known != nullptr ? known->meaning
                                                     : "kivctl " KIV_VERSION
                                                       " does not know this line; the library is another";
        const std::string advice = known != nullptr ? known->advice : "use the kivctl that came with the library";
        text += fmt::format("\n    = {}", meaning);
        if (!advice.empty()) {
            text += fmt::format("\n    -> {}", advice);
        }
        object.update(
            {{"function", logged->function}, {"known", known != nullptr}, {"meaning", meaning}, {"advice", advice}});
    }
    output.Show(text, object);
}

} // namespace

Result Explain(const Output& output)
{
    if (isatty(STDIN_FILENO) != 0) {
        output.Remark("reading the log from the terminal; Ctrl-D ends it");
    }
    std::array<char, kLongestLine> buffer{};
    while (std::cin.getline(buffer.data(), buffer.size()) || std::cin.gcount() > 0) {
        const bool isWhole = std::cin.good();
        const auto length = static_cast<size_t>(std::cin.gcount()) - (isWhole ? 1 : 0);
        ShowLine(std::string(buffer.data(), length), output);
        if (!std::cin.eof()) {
            std::cin.clear();
        }
    }
    if (std::ferror(stdin) != 0) {
        throw BadArguments("the log cannot be read from stdin");
    }
    return {};
}

} // namespace kiv::ctl
