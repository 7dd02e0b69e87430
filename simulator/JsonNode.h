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

/** Something is wrong with a file that a person has written. The message tells where and what. */
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

inline constexpr std::size_t kMebibyte = 1UL << 20;
/** More than people write, and less than fills the memory of a machine. */
inline constexpr std::size_t kLargestScenario = 16 * kMebibyte;
inline constexpr std::size_t kLargestRecording = 256 * kMebibyte;

/** So many bytes of what is wrong are shown. */
inline constexpr std::size_t kMostShown = 60;

/** The text of a file. Throws FileError, also for one that is longer. */
std::string ReadText(const std::string& file, std::size_t most);
/** The text of stdin. */
std::string ReadInput(std::size_t most);

/** A value in a JSON text, which knows on which line it stands. What cannot be used is told by a FileError. */
class JsonNode {
public:
    /** The root of a text. The name stands for the text in messages. */
    static JsonNode Parse(const std::string& name, const std::string& text, int firstLine = 1);

    [[noreturn]] void Fail(const std::string& reason) const;
    /** The value is not as expected: "a list", for example. */
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
