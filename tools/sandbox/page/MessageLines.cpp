#include "page/MessageLines.h"

#include "page/Peers.h"
#include "simulator/Interfaces.h"

#include <fmt/format.h>

namespace kiv::sandbox {

namespace {

bool AsksForServer(const Message& message)
{
    return message.destination == kDaemonName && message.member == "NameHasOwner" &&
           message.BodyText() == fmt::format("('{}',)", simulator::kServerName);
}

} // namespace

std::optional<nlohmann::json> MessageLines::Line(const Message& message)
{
    nlohmann::json line = {{"sender", message.sender}, {"serial", message.serial}};
    if (IsAnswer(message)) {
        const auto number = open_.Take(message);
        if (!number) {
            return std::nullopt;
        }
        line["answer"] = *number;
        if (message.errorName.empty()) {
            line["values"] = message.TypedBodyText();
        } else {
            line["error"] = message.errorName;
            line["message"] = message.ErrorText();
        }
        return line;
    }
    if (message.type != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
        return std::nullopt;
    }
    if (message.interface == kServerInterface) {
        line["call"] = ++lastNumber_;
    } else if (message.interface.starts_with(kClientInterface)) {
        line["event"] = ++lastNumber_;
        line["client"] = message.interface.substr(kClientInterface.size());
    } else if (AsksForServer(message)) {
        line["bus"] = ++lastNumber_;
    } else {
        return std::nullopt;
    }
    line["method"] = message.member;
    line["arguments"] = message.TypedBodyText();
    open_.Add(message, lastNumber_);
    return line;
}

} // namespace kiv::sandbox
