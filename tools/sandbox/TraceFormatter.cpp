#include "tools/sandbox/TraceFormatter.h"

#include "simulator/Interfaces.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace kiv::sandbox {

namespace {

constexpr std::string_view kOwnerSignal = "NameOwnerChanged";

bool IsHousekeeping(std::string_view owner, std::string_view member)
{
    // The last two are sent in a sandbox whose bus gets a fault.
    static constexpr std::array<std::string_view, 10> kMembers = {
        "Hello",        "AddMatch", "RemoveMatch", "GetNameOwner", "StartServiceByName",
        "NameAcquired", "NameLost", kOwnerSignal,  "ReloadConfig", "ActivatableServicesChanged"};
    return owner == simulator::kBusName && std::find(kMembers.begin(), kMembers.end(), member) != kMembers.end();
}

bool IsUnique(const std::string& busName)
{
    return busName.starts_with(':');
}

} // namespace

std::optional<std::string> TraceFormatter::Format(const Message& message)
{
    FollowNames(message);
    const Member member = FollowCalls(message);
    if (housekeeping_ == Housekeeping::kHidden && IsHousekeeping(member.owner, member.name)) {
        return std::nullopt;
    }
    Message shown = message;
    shown.sender = DisplayName(message.sender);
    shown.destination = DisplayName(message.destination);
    if (!IsAnswer(message) || member.name.empty()) {
        return Describe(shown);
    }
    if (message.sender != simulator::kBusName) {
        // The answer shows the one of the connection's names that was called.
        shown.sender = DisplayName(member.owner);
    }
    return fmt::format("{} [{}]", Describe(shown), member.name);
}

void TraceFormatter::FollowNames(const Message& message)
{
    if (message.sender != simulator::kBusName || message.member != kOwnerSignal || message.signature != "sss") {
        return;
    }
    const char* name = nullptr;
    const char* newOwner = nullptr;
    g_variant_get(message.body.get(), "(&s&s&s)", &name, nullptr, &newOwner);
    std::erase_if(ownedNames_, [&](const OwnedName& owned) { return owned.name == name; });
    if (!IsUnique(name) && *newOwner != '\0') {
        ownedNames_.push_back({name, newOwner});
    }
}

TraceFormatter::Member TraceFormatter::FollowCalls(const Message& message)
{
    if (IsAnswer(message)) {
        return openCalls_.Take(message).value_or(Member{});
    }
    if (message.type == G_DBUS_MESSAGE_TYPE_SIGNAL) {
        return {message.sender, message.member};
    }
    Member called{message.destination, message.member};
    openCalls_.Add(message, called);
    return called;
}

// Returns the well-known name that a connection acquired last, shortened.
std::string TraceFormatter::DisplayName(const std::string& busName) const
{
    if (!IsUnique(busName)) {
        return Shorten(busName);
    }
    const auto owned = std::find_if(
        ownedNames_.rbegin(), ownedNames_.rend(), [&](const OwnedName& name) { return name.owner == busName; });
    return owned == ownedNames_.rend() ? busName : Shorten(owned->name);
}

// Returns the last two elements of a name, or the whole name if another name on the bus has the same end.
std::string TraceFormatter::Shorten(const std::string& wellKnownName) const
{
    const auto end = wellKnownName.rfind('.');
    const auto dot = end == std::string::npos || end == 0 ? std::string::npos : wellKnownName.rfind('.', end - 1);
    if (dot == std::string::npos || wellKnownName == simulator::kBusName) {
        return wellKnownName;
    }
    const std::string tail = wellKnownName.substr(dot);
    const bool isAmbiguous = std::any_of(ownedNames_.begin(), ownedNames_.end(), [&](const OwnedName& other) {
        return other.name != wellKnownName && other.name.ends_with(tail);
    });
    return isAmbiguous ? wellKnownName : tail.substr(1);
}

} // namespace kiv::sandbox
