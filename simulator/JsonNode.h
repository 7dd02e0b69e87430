#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kiv::simulator {

// An error in a file that a person has written. The message says where it is and what is wrong.
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

inline constexpr std::size_t kMebibyte = 1UL << 20;
// The sizes are larger than any file that people write, and small enough for a machine's memory.
inline constexpr std::size_t kLargestScenario = 16 * kMebibyte;
inline constexpr std::size_t kLargestRecording = 256 * kMebibyte;

// Messages show at most this number of bytes of a wrong value.
inline constexpr std::size_t kMostShown = 60;

// Returns the text of a file. Throws FileError if it cannot be read, or is longer.
std::string ReadText(const std::string& file, std::size_t most);
// Returns the text of stdin.
std::string ReadInput(std::size_t most);

// A value in a JSON text, with the line on which it stands. Throws FileError if a value cannot be used.
class JsonNode {
public:
    // Returns the root of a text. Messages call the text by the name.
    static JsonNode Parse(const std::string& name, const std::string& text, int firstLine = 1);

    [[noreturn]] void Fail(const std::string& reason) const;
    // Fails because the value is not what was expected: "a list", for example.
    [[noreturn]] void FailExpected(const std::string& expected) const;

    bool IsNull() const;
    bool IsText() const;
    bool Flag() const;
    std::string Text() const;
    std::int64_t Integer(std::int64_t least, std::int64_t most) const;
    std::vector<JsonNode> Items() const;
    std::vector<std::pair<std::string, JsonNode>> Members() const;

private:
    struct Document;

    JsonNode(std::shared_ptr<const Document> document, std::string pointer, const nlohmann::json* value)
        : document_(std::move(document)), pointer_(std::move(pointer)), value_(value)
    {
    }

    std::shared_ptr<const Document> document_;
    std::string pointer_;
    const nlohmann::json* value_;
};

} // namespace kiv::simulator
