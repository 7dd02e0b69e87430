#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace kiv::ctl {

using Json = nlohmann::ordered_json;

// Shows results as text for people or, one object in each line of stdout, as JSON for scripts. Lines of several threads
// do not mix, and each line is flushed.
class Output {
public:
    explicit Output(bool json) : json_(json) {}

    // Writes the text to stdout.
    void Show(const std::string& text, const Json& object) const;

    // Writes the text to stderr.
    void Notify(const std::string& text, const Json& object) const;

    // Writes the text to stderr, but nothing as JSON.
    void Remark(const std::string& text) const;

    // Remarks what kivctl waits for, and for how long if the limit is not 0.
    void RemarkPending(const std::string& awaited, int limitSeconds) const;

private:
    bool json_;
};

} // namespace kiv::ctl
