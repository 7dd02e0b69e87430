#pragma once

#include "simulator/JsonNode.h"
#include "tools/Nearest.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kiv::simulator {

// The readers of all keys that an object of a kind can have.
template <typename Target>
using Keys = std::map<std::string, std::function<void(Target&, const JsonNode&)>>;

// Returns the keys of a map.
template <typename Map>
std::set<std::string> NamesOf(const Map& map)
{
    std::set<std::string> names;
    for (const auto& [name, value] : map) {
        names.insert(name);
    }
    return names;
}

// Returns the end of a message about an unknown key: the key that may be meant.
inline std::string MeantKey(const std::string& name, const std::set<std::string>& known)
{
    // An event has its bytes under another key than a fault.
    for (const auto& [one, other] : {std::pair("bytes", "data"), std::pair("data", "bytes")}) {
        if (name == one && known.contains(other)) {
            return fmt::format("; did you mean {}?", other);
        }
    }
    return DidYouMean(name, {known.begin(), known.end()});
}

[[noreturn]] inline void FailUnknown(const JsonNode& node, const std::string& name, const std::set<std::string>& known)
{
    node.Fail(fmt::format("there is no such key; known are {}{}", fmt::join(known, ", "), MeantKey(name, known)));
}

template <typename Target>
Target Read(const JsonNode& node, const Keys<Target>& keys, const std::vector<std::string>& required = {})
{
    Target target{};
    std::set<std::string> seen;
    for (const auto& [name, member] : node.Members()) {
        const auto key = keys.find(name);
        if (key == keys.end()) {
            FailUnknown(member, name, NamesOf(keys));
        }
        key->second(target, member);
        seen.insert(name);
    }
    for (const std::string& name : required) {
        if (!seen.contains(name)) {
            node.Fail(fmt::format("\"{}\" is missing", name));
        }
    }
    return target;
}

// Returns the reader of a key that sets a member.
template <typename Target, typename Member, typename Reader>
auto Into(Member Target::*member, Reader read)
{
    return [member, read](Target& target, const JsonNode& node) { target.*member = std::invoke(read, node); };
}

} // namespace kiv::simulator
