#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::ctl {

// A line that the library logs, in the words of docs/log-lines.md but without their markup.
struct LogLine {
    std::string format;    // as printf has it
    std::string functions; // names of those that log it; empty if any may
    std::string meaning;
    std::string advice;
};

struct LogSection {
    std::string title;
    std::vector<std::string> paragraphs;
    std::vector<LogLine> lines;
};

// docs/log-lines.md, which is compiled in.
extern const char* const kLogLinesPage;

// The page's sections in its order, the first of which is its head.
const std::vector<LogSection>& LogSections();

// The line that a function has logged with this text; null if the page has none.
const LogLine* FindLogLine(std::string_view function, const std::string& text);

// Precedes the function in each line of the library.
inline constexpr std::string_view kLibraryFile = "KivServiceInterface.cpp: ";

// The library's part of a line of a log.
struct Logged {
    std::string_view function;
    std::string text;
};

// Each log puts something else before the library's part, "FILE: FUNCTION(LINE) > TEXT".
std::optional<Logged> LoggedBy(std::string_view line);

} // namespace kiv::ctl
