#pragma once

#include "tools/sandbox/BusTrace.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace kiv::sandbox {

inline bool IsAnswer(const Message& message)
{
    return message.type == G_DBUS_MESSAGE_TYPE_METHOD_RETURN || message.type == G_DBUS_MESSAGE_TYPE_ERROR;
}

// Keeps data about the calls that have no answer yet.
template <typename About>
class OpenCalls {
public:
    void Add(const Message& call, About about)
    {
        if ((call.flags & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0) {
            calls_.insert_or_assign({call.sender, call.serial}, std::move(about));
        }
    }

    // Returns the data of the call that the message answers, or nothing if that call has not been added.
    std::optional<About> Take(const Message& answer)
    {
        auto call = calls_.extract({answer.destination, answer.replySerial});
        return call ? std::optional(std::move(call.mapped())) : std::nullopt;
    }

private:
    std::map<std::pair<std::string, std::uint32_t>, About> calls_; // by caller and serial
};

} // namespace kiv::sandbox
