#include "simulator/JsonNode.h"

#include "simulator/ShortText.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string_view>

namespace kiv::simulator {

namespace {

using nlohmann::json;

// Returns the pointer of an element or a member.
template <typename Token>
std::string Below(const std::string& pointer, const Token& token)
{
    return (json::json_pointer(pointer) / token).to_string();
}

// Finds the line on which each value begins, because the parser does not tell it.
class LineKeeper {
public:
    LineKeeper(std::string name, const std::string& text, int firstLine)
        : name_(std::move(name)), text_(text), line_(firstLine)
    {
    }

    // Takes an event of the parser, which has read this number of bytes.
    void Note(json::parse_event_t event, const json& parsed, std::size_t end)
    {
        using Event = json::parse_event_t;

        if (event == Event::object_end || event == Event::array_end) {
            levels_.pop_back();
            return;
        }
        if (event == Event::key) {
            here_ = Below(levels_.back().pointer, parsed.get<std::string>());
        } else if (!levels_.empty() && levels_.back().isArray) {
            here_ = Below(levels_.back().pointer, levels_.back().next++);
        }
        // The line of a member is that of its key.
        const bool isNew = lines_.emplace(here_, LineAt(end)).second;
        if (event == Event::key && !isNew) {
            throw FileError(fmt::format("{}:{}: {} is given twice", name_, line_, here_));
        }
        if (event == Event::object_start || event == Event::array_start) {
            levels_.push_back({here_, event == Event::array_start});
        }
    }

    // Returns the line of the last of these bytes. The number must not be less than the time before.
    int LineAt(std::size_t end)
    {
        for (; counted_ + 1 < end; ++counted_) {
            line_ += text_[counted_] == '\n' ? 1 : 0;
        }
        return line_;
    }

    std::map<std::string, int> Take() { return std::move(lines_); }

private:
    struct Level {
        std::string pointer;
        bool isArray;
        std::size_t next = 0;
    };

    std::string name_;
    const std::string& text_;
    int line_;
    std::size_t counted_ = 0;
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
    // The parser calls an unquoted word, and a text in single quotes, an invalid literal.
    const char* const hint = text.find("invalid literal") == std::string::npos
                                 ? ""
                                 : R"(; keys and texts must be in double quotes, such as '{"delay": 500}')";
    return fmt::format("{}:{}{}", line, text.substr(column + kColumn.size()), hint);
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
    std::istringstream stream(text);
    const auto end = [&stream] {
        return static_cast<std::size_t>(stream.rdbuf()->pubseekoff(0, std::ios::cur, std::ios::in));
    };
    LineKeeper lines(name, text, firstLine);
    auto document = std::make_shared<Document>();
    document->name = name;
    try {
        document->root = json::parse(stream, [&](int, json::parse_event_t event, const json& parsed) {
            lines.Note(event, parsed, end());
            return true;
        });
    } catch (const json::exception& error) {
        throw FileError(fmt::format("{}:{}", name, PlaceAndReason(error, lines.LineAt(end()))));
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
