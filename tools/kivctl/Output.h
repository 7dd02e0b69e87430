#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace kiv::ctl {

using Json = nlohmann::ordered_json;

// Shows things as text for people or, one object a line on stdout, as JSON for scripts. Lines of several threads do not
// mix, and each is flushed.
class Output {
public:
    explicit Output(bool json) : json_(json) {}

    // Text goes to stdout.
    void Show(const std::string& text, const Json& object) const;

    // Text goes to stderr.
    void Notify(const std::string& text, const Json& object) const;

    // Text goes to stderr. Scripts are not told.
    void Remark(const std::string& text) const;

private:
    bool json_;
};

} // namespace kiv::ctl
