#include "simulator/JsonNode.h"

#include "simulator/ShortText.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string_view>

namespace kiv::simulator {

namespace {

using nlohmann::json;

// An iterator for the parser that counts lines, because the parser does not report its position.
class CountedCharacter {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    // Counts lines in *line, which is the line of the character that was taken last.
    CountedCharacter(const char* at, int* line) : at_(at), line_(line) {}

    reference operator*() const { return *at_; }
    CountedCharacter& operator++()
    {
        *line_ += lineEnds_ ? 1 : 0;
        lineEnds_ = *at_ == '\n';
        ++at_;
        return *this;
    }
    bool operator==(const CountedCharacter& other) const { return at_ == other.at_; }
    bool operator!=(const CountedCharacter& other) const { return at_ != other.at_; }

private:
    const char* at_;
    int* line_;
    bool lineEnds_ = false;
};

// Below() returns the JSON pointer of an element or a member.
std::string Below(const std::string& pointer, std::size_t index)
{
    return fmt::format("{}/{}", pointer, index);
}

std::string Below(const std::string& pointer, const std::string& key)
{
    std::string escaped;
    for (const char character : key) {
        escaped += character == '~' ? "~0" : character == '/' ? "~1" : std::string(1, character);
    }
    return pointer + '/' + escaped;
}

// Receives the parser's events, and notes the line on which each value begins.
class LineKeeper {
public:
    explicit LineKeeper(std::string name) : name_(std::move(name)) {}

    void Note(json::parse_event_t event, const json& parsed, int line)
    {
        switch (event) {
        case json::parse_event_t::key:
            levels_.back().key = parsed.get<std::string>();
            Keep(line);
            break;
        case json::parse_event_t::object_start:
        case json::parse_event_t::array_start:
            Begin(line);
            levels_.push_back({here_, event == json::parse_event_t::array_start, 0, ""});
            break;
        case json::parse_event_t::object_end:
        case json::parse_event_t::array_end:
            levels_.pop_back();
            break;
        case json::parse_event_t::value:
            Begin(line);
            break;
        }
    }

    std::map<std::string, int> Take() { return std::move(lines_); }

private:
    struct Level {
        std::string pointer;
        bool isArray;
        std::size_t next;
        std::string key;
    };

    // Notes the line of a value. The line of a member is that of its key, and is noted already.
    void Begin(int line)
    {
        if (levels_.empty()) {
            lines_.emplace("", line);
        } else if (levels_.back().isArray) {
            Level& level = levels_.back();
            here_ = Below(level.pointer, level.next++);
            lines_.emplace(here_, line);
        } else {
            here_ = Below(levels_.back().pointer, levels_.back().key);
        }
    }

    void Keep(int line)
    {
        const std::string pointer = Below(levels_.back().pointer, levels_.back().key);
        if (!lines_.emplace(pointer, line).second) {
            throw FileError(fmt::format("{}:{}: {} is given twice", name_, line, pointer));
        }
    }

    std::string name_;
    std::vector<Level> levels_;
    std::string here_;
    std::map<std::string, int> lines_;
};

// Returns the place of an error, and what is wrong there. The text of most errors has a place "at line 3, column 1: ".
// Its line counts within the text, which may begin within a file, so it is replaced. The text may end with a whole
// value, of which the beginning is enough.
std::string PlaceAndReason(const json::exception& error, int line)
{
    std::string text = error.what();
    text.erase(0, text.find("] ") + 2);
    constexpr std::size_t kMostTold = 200;
    text = Beginning(text, kMostTold);
    constexpr std::string_view kColumn = ", column ";
    const auto column = text.find(kColumn);
    if (!text.starts_with("parse error at line ") || column == std::string::npos) {
        return fmt::format("{}: {}", line, text);
    }
    return fmt::format("{}:{}", line, text.substr(column + kColumn.size()));
}

// Reads a stream to its end.
std::string ReadStream(std::istream& stream, const std::string& name, std::size_t most)
{
    std::string text;
    std::array<char, 4096> part;
    while (stream.read(part.data(), part.size()) || stream.gcount() > 0) {
        text.append(part.data(), static_cast<std::size_t>(stream.gcount()));
        if (text.size() > most) {
            throw FileError(fmt::format("{}: must be a file of at most {} MiB, got more", name, most / kMebibyte));
        }
    }
    return text;
}

} // namespace

struct JsonNode::Document {
    std::string name;
    json root;
    std::map<std::string, int> lines;
};

std::string ReadInput(std::size_t most)
{
    return ReadStream(std::cin, "stdin", most);
}

std::string ReadText(const std::string& file, std::size_t most)
{
    std::ifstream stream(file);
    std::string text = ReadStream(stream, file, most);
    // Opening a directory succeeds, and reading it fails.
    if (!stream.is_open() || stream.bad()) {
        throw FileError(fmt::format("{}: {}", file, std::strerror(errno)));
    }
    return text;
}

JsonNode JsonNode::Parse(const std::string& name, const std::string& text, int firstLine)
{
    int line = firstLine;
    LineKeeper lines(name);
    auto document = std::make_shared<Document>();
    document->name = name;
    try {
        document->root = json::parse(
            CountedCharacter(text.data(), &line), CountedCharacter(text.data() + text.size(), &line),
            [&](int, json::parse_event_t event, const json& parsed) {
                lines.Note(event, parsed, line);
                return true;
            });
    } catch (const json::exception& error) {
        throw FileError(fmt::format("{}:{}", name, PlaceAndReason(error, line)));
    }
    document->lines = lines.Take();
    return {document, "", &document->root};
}

void JsonNode::Fail(const std::string& reason) const
{
    const std::string where = pointer_.empty() ? "" : pointer_ + ": ";
    throw FileError(fmt::format("{}:{}: {}{}", document_->name, document_->lines.at(pointer_), where, reason));
}

void JsonNode::FailExpected(const std::string& expected) const
{
    Fail(fmt::format("must be {}, got {}", expected, Beginning(value_->dump(-1, ' ', true), kMostShown)));
}

bool JsonNode::IsNull() const
{
    return value_->is_null();
}

bool JsonNode::IsText() const
{
    return value_->is_string();
}

bool JsonNode::Flag() const
{
    if (!value_->is_boolean()) {
        FailExpected("true or false");
    }
    return value_->get<bool>();
}

std::string JsonNode::Text() const
{
    if (!value_->is_string()) {
        FailExpected("a text");
    }
    return value_->get<std::string>();
}

std::int64_t JsonNode::Integer(std::int64_t least, std::int64_t most) const
{
    const bool fits = value_->is_number_integer() &&
                      !(value_->is_number_unsigned() && value_->get<std::uint64_t>() > INT64_MAX) &&
                      value_->get<std::int64_t>() >= least && value_->get<std::int64_t>() <= most;
    if (!fits) {
        FailExpected(fmt::format("a whole number from {} to {}", least, most));
    }
    return value_->get<std::int64_t>();
}

std::vector<JsonNode> JsonNode::Items() const
{
    if (!value_->is_array()) {
        FailExpected("a list");
    }
    std::vector<JsonNode> items;
    for (std::size_t index = 0; index < value_->size(); ++index) {
        items.push_back({document_, Below(pointer_, index), &(*value_)[index]});
    }
    return items;
}

std::vector<std::pair<std::string, JsonNode>> JsonNode::Members() const
{
    if (!value_->is_object()) {
        FailExpected("an object");
    }
    std::vector<std::pair<std::string, JsonNode>> members;
    for (const auto& member : value_->items()) {
        members.emplace_back(member.key(), JsonNode(document_, Below(pointer_, member.key()), &member.value()));
    }
    return members;
}

} // namespace kiv::simulator
