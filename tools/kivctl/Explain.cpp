#include "tools/kivctl/Explain.h"

#include "tools/kivctl/LogLines.h"

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

using namespace std::string_view_literals;

// The longest line and the longest run of NUL bytes that are read. A log that is truncated while a program writes it
// may begin with many NUL bytes.
constexpr size_t kLongestLine = 1024UL * 1024;
constexpr size_t kLongestRun = 64 * kLongestLine;

// The beginning of a file shows whether it is a text: it has no other control characters than these, and no short run
// of NUL bytes. A power cut leaves long runs. journalctl -o json-seq puts the last of the characters before each line.
constexpr size_t kBeginning = 512;
constexpr size_t kShortRun = 15;
constexpr std::string_view kControlsOfTexts = "\0\a\b\t\n\v\f\r\x1b\x1e"sv;

constexpr std::string_view kMessageKey = "\"MESSAGE\"";

struct Explanation {
    bool isKnown;
    std::string meaning;
    std::string advice;
};

const Explanation kUnknown = {
    false,
    "not known to kivctl " KIV_VERSION ": cut short, or wrapped by the logger, or of another version of the library",
    "compare it with man kiv-log-lines; for another library, use the kivctl that came with it"};
const Explanation kCut = {
    false, "cut short before its text, so that it does not say what happened",
    "have the log keep longer lines, and look at the lines around it"};

bool IsByte(const Json& value)
{
    return value.is_number_unsigned() && value.get<uint64_t>() <= UCHAR_MAX;
}

// Returns the text of a value that is a text or an array of bytes.
std::optional<std::string> TextOf(const Json& value)
{
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (!value.is_array() || !std::ranges::all_of(value, IsByte)) {
        return std::nullopt;
    }
    std::string text;
    for (const Json& byte : value) {
        text += static_cast<char>(byte.get<uint8_t>());
    }
    return text;
}

// Returns the JSON object in a line, or nothing if there is none. journalctl -o json writes an object for each line,
// and json-seq and json-sse put something before it. json-pretty writes a line for each member, which becomes an object
// here.
std::string JsonOf(std::string_view line)
{
    for (const std::string_view before : {"\x1e", "data: "}) {
        if (line.starts_with(before)) {
            line.remove_prefix(before.size());
        }
    }
    if (line.starts_with('{')) {
        return std::string(line);
    }
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (!line.starts_with(kMessageKey)) {
        return {};
    }
    line = WithoutEnd(line);
    if (line.ends_with(',')) {
        line.remove_suffix(1);
    }
    return fmt::format("{{{}}}", line);
}

// Returns the message of a line. journalctl -o json writes a message that is not plain UTF-8 text as an array of its
// bytes, and several messages of an entry as an array.
std::string MessageOf(const std::string& line)
{
    const std::string json = JsonOf(line);
    if (json.empty()) {
        return line;
    }
    const Json entry = Json::parse(json, nullptr, false);
    const auto message = entry.find("MESSAGE");
    if (message == entry.end()) {
        return line;
    }
    if (const auto text = TextOf(*message)) {
        return *text;
    }
    for (const Json& value : *message) {
        if (const auto text = TextOf(value); text && text->find(kLibraryFile) != std::string::npos) {
            return *text;
        }
    }
    return line;
}

// Returns whether a line begins a message that journalctl -o json-pretty writes in several lines.
bool BeginsSplitMessage(std::string_view line)
{
    return line.find(kMessageKey) != std::string_view::npos && WithoutEnd(line).ends_with('[');
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

Explanation ExplanationOf(const Logged& logged)
{
    if (!logged.text) {
        return kCut;
    }
    if (const LogLine* known = KnownLine(logged.function, *logged.text)) {
        return {true, known->meaning, known->advice};
    }
    if (const LogLine* known = FindCutLogLine(*logged.text)) {
        return {true, known->meaning + " (the line is cut short)", known->advice};
    }
    return kUnknown;
}

// Shows a line. Returns whether it is a line of the library.
bool ShowLine(const std::string& line, const Output& output)
{
    std::string text = line;
    Json object = {{"line", line}};
    const std::string message = MessageOf(line);
    const auto logged = LoggedBy(message);
    if (logged) {
        const Explanation shown = ExplanationOf(*logged);
        text += fmt::format("\n    = {}", shown.meaning);
        if (!shown.advice.empty()) {
            text += fmt::format("\n    -> {}", shown.advice);
        }
        object.update(
            {{"function", logged->function},
             {"known", shown.isKnown},
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

    // Returns the next line, without its end, as soon as it is complete. Returns nothing at the end of the log. Skips
    // lines that are too long, and runs of NUL bytes, which end a line.
    std::optional<std::string> ReadLine()
    {
        std::string line;
        int character = 0;
        while ((character = Read()) != EOF && character != '\n') {
            if (character == '\0') {
                SkipRun();
                if (!line.empty()) {
                    return line;
                }
            } else if (line.size() == kLongestLine) {
                SkipLine();
                line.clear();
            } else {
                line += static_cast<char>(character);
            }
        }
        return character == EOF && line.empty() ? std::nullopt : std::optional(line);
    }

    bool HasSkipped() const { return runs_ != 0 || longLines_ != 0; }

    void RemarkSkipped(const Output& output) const
    {
        if (runs_ != 0) {
            output.Remark(fmt::format(
                "skipped NUL bytes, which a power cut leaves in a log: {} in {} place{}", nulBytes_, runs_,
                runs_ == 1 ? "" : "s"));
        }
        if (longLines_ != 0) {
            output.Remark(fmt::format(
                "skipped {} line{} of over {} bytes", longLines_, longLines_ == 1 ? "" : "s", kLongestLine));
        }
    }

private:
    BadArguments Failure() const { return BadArguments(fmt::format("{}: {}", name_, std::strerror(errno))); }
    BadArguments IsBinary() const
    {
        return BadArguments(name_ + ": must be a text log, got binary data; unpack it first");
    }

    // Returns the next character, or EOF.
    int Read()
    {
        const int character = getc_unlocked(file_);
        if (character == EOF) {
            if (std::ferror(file_) != 0) {
                throw Failure();
            }
            return EOF;
        }
        const bool isControl = character < ' ';
        if (++read_ <= kBeginning && isControl &&
            kControlsOfTexts.find(static_cast<char>(character)) == std::string_view::npos) {
            throw IsBinary();
        }
        return character;
    }

    // Reads the rest of a run of NUL bytes, and a line end behind it.
    void SkipRun()
    {
        size_t length = 0;
        int character = '\0';
        while (character == '\0' && length <= kLongestRun) {
            ++length;
            character = Read();
        }
        if (length > kLongestRun || (length <= kShortRun && read_ <= kBeginning)) {
            throw IsBinary();
        }
        nulBytes_ += length;
        ++runs_;
        if (character != '\n') {
            std::ungetc(character, file_);
        }
    }

    void SkipLine()
    {
        ++longLines_;
        int character = 0;
        while (character != EOF && character != '\n') {
            character = Read();
        }
    }

    std::string name_;
    std::FILE* file_;
    size_t read_ = 0;
    size_t nulBytes_ = 0;
    size_t runs_ = 0; // of NUL bytes
    size_t longLines_ = 0;
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
    int split = 0;
    while (const auto line = log.ReadLine()) {
        ++lines;
        explained += ShowLine(*line, output) ? 1 : 0;
        split += BeginsSplitMessage(*line) ? 1 : 0;
    }
    log.RemarkSkipped(output);
    if (split != 0) {
        output.Remark(fmt::format(
            "journalctl -o json-pretty writes messages that are not plain text in several lines, and {} of them {} not "
            "read; write the log with -o json or cat",
            split, split == 1 ? "was" : "were"));
    }
    if (explained == 0) {
        output.Remark(fmt::format(
            "{}; the library's lines have \"{}FUNCTION(NUMBER) > TEXT\" in them; an application logs them to stderr on "
            "a PC, "
            "more with KIV_LOG_LEVEL=info, and journalctl -t NAM_SERVICE shows those of a journal",
            log.HasSkipped() ? "none of the remaining lines is the library's"
            : lines == 0     ? "the log is empty"
                             : fmt::format("none of {} line{} is the library's", lines, lines == 1 ? "" : "s"),
            kLibraryFile));
    }
    return {};
}

} // namespace kiv::ctl
