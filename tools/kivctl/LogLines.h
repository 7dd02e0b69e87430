#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::ctl {

// A line that the library logs, with the words of docs/log-lines.md but without their markup.
struct LogLine {
    std::string format;    // a format of printf
    std::string functions; // the functions that log it; empty if any function may
    std::string meaning;
    std::string advice;
};

struct LogSection {
    std::string title;
    std::vector<std::string> paragraphs;
    std::vector<LogLine> lines;
};

// The text of docs/log-lines.md, which is compiled in.
extern const char* const kLogLinesPage;

// Returns the page's sections in their order. The first one is the text above all headings.
const std::vector<LogSection>& LogSections();

// Returns the line that a function has logged with this text, or null if the page does not have it.
const LogLine* FindLogLine(std::string_view function, const std::string& text);

// Returns the only line that begins with this text, or null if there is none, several, or the text is too short.
const LogLine* FindCutLogLine(std::string_view text);

// Begins the library's part of a line.
inline constexpr std::string_view kLibraryFile = "KivServiceInterface.cpp: ";

struct Logged {
    std::string_view function;
    std::optional<std::string> text; // none if the line ends before it
};

// Returns the library's part of a line, "FILE: FUNCTION(LINE) > TEXT". Each log puts something else before it.
std::optional<Logged> LoggedBy(std::string_view line);

// Removes what a logger puts behind a text.
std::string_view WithoutEnd(std::string_view text);

} // namespace kiv::ctl
