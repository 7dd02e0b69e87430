#include "tools/kivctl/LogLines.h"

#include "simulator/Glib.h"
#include "src/link/Owners.h"

#include <fmt/format.h>
#include <glib.h>

#include <algorithm>
#include <map>
#include <memory>
#include <sstream>

namespace kiv::ctl {
namespace {

constexpr std::string_view kReasonsBegin = "Reasons of ";
constexpr std::string_view kBeforeText = ") > ";

using Regex = std::unique_ptr<GRegex, link::Releaser<g_regex_unref>>;

// The pattern matches bytes, because the texts need not be valid UTF-8.
Regex NewRegex(const std::string& pattern)
{
    constexpr auto kOptions = static_cast<GRegexCompileFlags>(G_REGEX_RAW | G_REGEX_DOTALL | G_REGEX_OPTIMIZE);
    return Regex(g_regex_new(pattern.c_str(), kOptions, static_cast<GRegexMatchFlags>(0), nullptr));
}

std::string Replaced(const std::string& text, const char* pattern, const char* replacement)
{
    const Regex regex = NewRegex(pattern);
    return simulator::TakeText(
        g_regex_replace(regex.get(), text.c_str(), -1, 0, replacement, static_cast<GRegexMatchFlags>(0), nullptr));
}

// Replaces links by their texts, and code by itself.
std::string WithoutMarkup(const std::string& markdown)
{
    return Replaced(Replaced(markdown, R"(\[([^][]*)\]\([^()]*\))", "\\1"), "`", "");
}

std::vector<std::string> CellsOf(const std::string& row)
{
    // Each cell has a blank before it and behind it.
    std::vector<std::string> cells;
    size_t at = 2;
    for (size_t end = 0; (end = row.find(" |", at)) != std::string::npos; at = end + 3) {
        cells.push_back(row.substr(at, end - at));
    }
    return cells;
}

// A table of the page. Its first row has the titles of the columns.
class PageTable {
public:
    bool IsOpen() const { return !titles_.empty(); }
    void Open(std::vector<std::string> titles) { titles_ = std::move(titles); }
    void Close() { titles_.clear(); }

    LogLine Line(const std::vector<std::string>& cells) const
    {
        std::map<std::string, std::string> byTitle;
        for (size_t i = 0; i < std::min(cells.size(), titles_.size()); ++i) {
            byTitle[titles_[i]] = WithoutMarkup(cells[i]);
        }
        LogLine line{
            byTitle["Line"], byTitle["Of which function"], byTitle["Meaning"] + byTitle["What is wrong"],
            byTitle["What to do"]};
        if (line.functions == "itself") {
            line.functions = line.format; // the function's name
        }
        return line;
    }

private:
    std::vector<std::string> titles_;
};

std::vector<LogSection> ReadPage()
{
    std::istringstream page(kLogLinesPage);
    std::vector<LogSection> sections;
    PageTable table;
    bool inParagraph = false;
    for (std::string line; std::getline(page, line);) {
        const bool isRow = line.starts_with("| ");
        if (const size_t title = line.find_first_not_of('#'); title != 0 && title != std::string::npos) {
            sections.push_back({WithoutMarkup(line.substr(title + 1)), {}, {}});
        } else if (isRow && table.IsOpen()) {
            sections.back().lines.push_back(table.Line(CellsOf(line)));
        } else if (isRow) {
            table.Open(CellsOf(line));
        } else if (!line.empty() && !line.starts_with('|')) {
            std::vector<std::string>& paragraphs = sections.back().paragraphs;
            const bool isCode = line.starts_with("    ");
            if (!inParagraph) {
                paragraphs.emplace_back();
            }
            paragraphs.back() += (inParagraph ? (isCode ? "\n" : " ") : "") + (isCode ? line : WithoutMarkup(line));
        }
        inParagraph = !line.empty() && !isRow;
        if (line.empty()) {
            table.Close();
        }
    }
    return sections;
}

// Returns a pattern that matches the output of printf for a format.
std::string PatternOf(const std::string& format)
{
    static const std::map<std::string, const char*, std::less<>> conversions = {
        {"%s", ".*"},      {"%d", "-?[0-9]+"},    {"%ld", "-?[0-9]+"},      {"%u", "[0-9]+"},
        {"%zu", "[0-9]+"}, {"%02x", "[0-9a-f]+"}, {"%p", "[0-9a-fnil()x]+"}};
    std::string pattern = "^";
    for (size_t at = 0; at < format.size();) {
        const size_t percent = std::min(format.find('%', at), format.size());
        pattern += simulator::TakeText(g_regex_escape_string(format.c_str() + at, static_cast<int>(percent - at)));
        at = percent;
        if (at < format.size()) {
            const size_t end = format.find_first_of("sdupx", at) + 1;
            pattern += conversions.at(format.substr(at, end - at));
            at = end;
        }
    }
    return pattern + "$";
}

struct Matcher {
    Regex regex;
    std::string beginning; // the literal characters before the first conversion
    size_t literals;       // number of literal characters; the format with the most fits best
    const LogLine* line;
};

std::vector<Matcher> NewMatchers()
{
    std::vector<Matcher> matchers;
    for (const LogSection& section : LogSections()) {
        for (const LogLine& line : section.lines) {
            const bool isReason = section.title.starts_with(kReasonsBegin);
            const std::string format =
                isReason ? fmt::format("[NAM_API] Error: method [%s],[{}]...", line.format) : line.format;
            matchers.push_back(
                {NewRegex(PatternOf(format)), format.substr(0, format.find('%')),
                 Replaced(format, "%[0-9a-z]*[sdupx]", "").size(), &line});
        }
    }
    return matchers;
}

const std::vector<Matcher>& Matchers()
{
    static const std::vector<Matcher> matchers = NewMatchers();
    return matchers;
}

bool IsOf(const LogLine& line, std::string_view function)
{
    return (" " + Replaced(line.functions, ",", " ") + " ").find(fmt::format(" {} ", function)) != std::string::npos;
}

// Tells whether a text is the beginning of "FUNCTION(LINE) > ".
bool IsCut(std::string_view text)
{
    const size_t nameEnd = text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_");
    if (nameEnd == std::string_view::npos) {
        return true;
    }
    const size_t numberEnd = std::min(text.find_first_not_of("0123456789", nameEnd + 1), text.size());
    return text[nameEnd] == '(' && kBeforeText.starts_with(text.substr(numberEnd));
}

} // namespace

std::string_view WithoutEnd(std::string_view text)
{
    return text.substr(0, text.find_last_not_of(" \r") + 1);
}

std::optional<Logged> LoggedBy(std::string_view line)
{
    const size_t file = line.find(kLibraryFile);
    if (file == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view part = line.substr(file + kLibraryFile.size());
    const std::string_view function = part.substr(0, part.find('('));
    const size_t arrow = part.find(kBeforeText);
    if (arrow != std::string_view::npos && function.size() < arrow) {
        return Logged{function, std::string(WithoutEnd(part.substr(arrow + kBeforeText.size())))};
    }
    return IsCut(WithoutEnd(part)) ? std::optional(Logged{WithoutEnd(function), std::nullopt}) : std::nullopt;
}

const std::vector<LogSection>& LogSections()
{
    static const std::vector<LogSection> sections = ReadPage();
    return sections;
}

const LogLine* FindLogLine(std::string_view function, const std::string& text)
{
    const Matcher* best = nullptr;
    for (const Matcher& matcher : Matchers()) {
        if (g_regex_match(matcher.regex.get(), text.c_str(), static_cast<GRegexMatchFlags>(0), nullptr) == FALSE) {
            continue;
        }
        const bool isBetter = best == nullptr || matcher.literals > best->literals ||
                              (matcher.literals == best->literals && IsOf(*matcher.line, function));
        if (isBetter) {
            best = &matcher;
        }
    }
    return best != nullptr ? best->line : nullptr;
}

const LogLine* FindCutLogLine(std::string_view text)
{
    constexpr size_t kEnough = 12;
    const LogLine* found = nullptr;
    for (const Matcher& matcher : Matchers()) {
        if (text.size() < kEnough || !matcher.beginning.starts_with(text)) {
            continue;
        }
        if (found != nullptr) {
            return nullptr;
        }
        found = matcher.line;
    }
    return found;
}

} // namespace kiv::ctl
