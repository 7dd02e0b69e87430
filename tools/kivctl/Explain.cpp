#include "Explain.h"

#include "LogLines.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace kiv::ctl {
namespace {

// No log has longer ones, and what never ends is not a log.
constexpr size_t kLongestLine = 1024UL * 1024;

// journalctl -o json writes an object for each line.
std::string MessageOf(const std::string& line)
{
    if (line.starts_with('{')) {
        const Json entry = Json::parse(line, nullptr, false);
        if (const auto message = entry.find("MESSAGE"); message != entry.end() && message->is_string()) {
            return message->get<std::string>();
        }
    }
    return line;
}

// A logger may put a colour code behind the text, or the line into "message repeated 2 times: [ LINE]".
const LogLine* KnownLine(const Logged& logged)
{
    const std::string& text = logged.text;
    const std::string plain = text.substr(0, text.find('\x1b'));
    for (const std::string& candidate : {text, plain, plain.substr(0, plain.rfind(']'))}) {
        if (const LogLine* known = FindLogLine(logged.function, candidate)) {
            return known;
        }
    }
    return nullptr;
}

// Shows a line. Returns whether it is one of the library's.
bool ShowLine(const std::string& line, const Output& output)
{
    std::string text = line;
    Json object = {{"line", line}};
    const std::string message = MessageOf(line);
    const auto logged = LoggedBy(message);
    if (logged) {
        const LogLine* known = KnownLine(*logged);
        const std::string meaning = known != nullptr
                                        ? known->meaning
                                        : "not known to kivctl " KIV_VERSION
                                          ": cut short, or wrapped by the logger, or of another version of the library";
        const std::string advice =
            known != nullptr
                ? known->advice
                : "compare it with man kiv-log-lines; for another library, use the kivctl that came with it";
        text += fmt::format("\n    = {}", meaning);
        if (!advice.empty()) {
            text += fmt::format("\n    -> {}", advice);
        }
        object.update(
            {{"function", logged->function}, {"known", known != nullptr}, {"meaning", meaning}, {"advice", advice}});
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

    // The next line as soon as it is there, without its end. Nothing at the end of the log.
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
