#include "Explain.h"

#include "LogLines.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace kiv::ctl {
namespace {

// The longest line that is read. No log has longer lines, and a text without line ends is not a log.
constexpr size_t kLongestLine = 1024UL * 1024;

const LogLine kUnknown = {
    "", "",
    "not known to kivctl " KIV_VERSION ": cut short, or wrapped by the logger, or of another version of the library",
    "compare it with man kiv-log-lines; for another library, use the kivctl that came with it"};
const LogLine kCut = {
    "", "", "cut short before its text, so that it does not say what happened",
    "have the log keep longer lines, and look at the lines around it"};

bool IsByte(const Json& value)
{
    return value.is_number_unsigned() && value.get<uint64_t>() <= UCHAR_MAX;
}

// Returns the message of a line. journalctl -o json writes an object for each line, and a message that is not plain
// UTF-8 text as an array of its bytes.
std::string MessageOf(const std::string& line)
{
    if (!line.starts_with('{')) {
        return line;
    }
    const Json entry = Json::parse(line, nullptr, false);
    const auto message = entry.find("MESSAGE");
    if (message == entry.end()) {
        return line;
    }
    if (message->is_string()) {
        return message->get<std::string>();
    }
    if (!message->is_array() || !std::ranges::all_of(*message, IsByte)) {
        return line;
    }
    std::string text;
    for (const Json& byte : *message) {
        text += static_cast<char>(byte.get<uint8_t>());
    }
    return text;
}

// Returns the known line with this text. A logger may put a colour code behind the text, or the line into "message
// repeated 2 times: [ LINE]".
const LogLine* KnownLine(std::string_view function, const std::string& text)
{
    const std::string plain = text.substr(0, text.find('\x1b'));
    for (const std::string& candidate : {text, plain, plain.substr(0, plain.rfind(']'))}) {
        if (const LogLine* known = FindLogLine(function, candidate)) {
            return known;
        }
    }
    return nullptr;
}

// Shows a line. Returns whether it is a line of the library.
bool ShowLine(const std::string& line, const Output& output)
{
    std::string text = line;
    Json object = {{"line", line}};
    const std::string message = MessageOf(line);
    const auto logged = LoggedBy(message);
    if (logged) {
        const LogLine* known = logged->text ? KnownLine(logged->function, *logged->text) : nullptr;
        const LogLine& shown = known != nullptr ? *known : logged->text ? kUnknown : kCut;
        text += fmt::format("\n    = {}", shown.meaning);
        if (!shown.advice.empty()) {
            text += fmt::format("\n    -> {}", shown.advice);
        }
        object.update(
            {{"function", logged->function},
             {"known", known != nullptr},
             {"meaning", shown.meaning},
             {"advice", shown.advice}});
    }
    output.Show(text, object);
    return logged.has_value();
}

class LogFile {
public:
    explicit LogFile(const std::string& path)
        : name_(path == "-" ? "stdin" : path), file_(path == "-" ? stdin : std::fopen(path.c_str(), "rbe"))
    {
        if (file_ == nullptr) {
            throw Failure();
        }
    }
    ~LogFile()
    {
        if (file_ != stdin) {
            std::fclose(file_);
        }
    }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    bool IsTerminal() const { return isatty(fileno(file_)) != 0; }

    // Returns the next line, without its end, as soon as it is complete. Returns nothing at the end of the log.
    std::optional<std::string> ReadLine()
    {
        std::string line;
        int character = 0;
        while ((character = getc_unlocked(file_)) != EOF && character != '\n') {
            if (line.size() == kLongestLine) {
                throw BadArguments(fmt::format(
                    "{}: must be a log with lines of {} bytes at most, got a longer one", name_, kLongestLine));
            }
            if (character == '\0') {
                throw BadArguments(name_ + ": must be a text log, got binary data; unpack it first");
            }
            line += static_cast<char>(character);
        }
        if (std::ferror(file_) != 0) {
            throw Failure();
        }
        return character == EOF && line.empty() ? std::nullopt : std::optional(line);
    }

private:
    BadArguments Failure() const { return BadArguments(fmt::format("{}: {}", name_, std::strerror(errno))); }

    std::string name_;
    std::FILE* file_;
};

} // namespace

Result Explain(const std::string& path, const Output& output)
{
    LogFile log(path);
    if (log.IsTerminal()) {
        output.Remark("reading the log from the terminal; Ctrl-D ends it");
    }
    int lines = 0;
    int explained = 0;
    while (const auto line = log.ReadLine()) {
        ++lines;
        explained += ShowLine(*line, output) ? 1 : 0;
    }
    if (explained == 0) {
        output.Remark(fmt::format(
            "{}; the library's lines have \"{}FUNCTION(NUMBER) > TEXT\" in them; an application logs them to stderr on "
            "a PC, "
            "more with KIV_LOG_LEVEL=info, and journalctl -t NAM_SERVICE shows those of a journal",
            lines == 0 ? "the log is empty"
                       : fmt::format("none of {} line{} is the library's", lines, lines == 1 ? "" : "s"),
            kLibraryFile));
    }
    return {};
}

} // namespace kiv::ctl
