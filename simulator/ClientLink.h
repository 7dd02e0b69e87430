#pragma once

#include "simulator/Glib.h"
#include "simulator/Trace.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kiv::simulator {

// The answer to a call of a client.
struct ClientAnswer {
    // The client itself answered, be it with an error.
    bool fromClient = false;
    // The name and the message of a D-Bus error, or empty if the call succeeded.
    std::string error;
    std::string message;
    // The values of the reply, or an empty tuple if the call failed.
    Variant reply = Own(g_variant_new_tuple(nullptr, 0));
};

// The result of pushing events.
struct PushResult {
    std::uint64_t answered = 0;
    std::string firstError;
    // The message names the client and the error.
    std::string firstMessage;
};

// Calls the objects of client processes. Calls do not block, and answers arrive on the main loop.
class ClientLink {
public:
    using OnAnswer = std::function<void(const ClientAnswer&)>;
    using OnPushed = std::function<void(const PushResult&)>;

    ClientLink(ObjectRef<GDBusConnection> connection, Trace trace) : connection_(std::move(connection)), trace_(trace)
    {
    }

    // Returns whether the object path and the names of a client can be formed from the id.
    static bool IsUsable(const std::string& clientId);

    // Calls a method with a tuple of arguments. Throws BusError for an id or a method name that is not valid.
    void Call(
        const std::string& clientId, const std::string& method, GVariant* arguments, unsigned timeoutMs,
        OnAnswer onAnswer) const;

    // Pushes the payload count times to each of the clients, without waiting for answers in between. Throws BusError if
    // one of the ids is not valid.
    void
    Push(const std::vector<std::string>& clientIds, const Variant& payload, unsigned count, OnPushed onPushed) const;

private:
    ObjectRef<GDBusConnection> connection_;
    Trace trace_;
};

} // namespace kiv::simulator
