#pragma once

#include "simulator/Glib.h"
#include "simulator/Trace.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kiv::simulator {

/** What came back from a call on a client. */
struct ClientAnswer {
    /** The client itself answered, be it with an error. */
    bool fromClient = false;
    /** D-Bus error name and message; empty if the call succeeded. */
    std::string error;
    std::string message;
    /** Empty if the call failed. */
    Variant reply = Own(g_variant_new_tuple(nullptr, 0));
};

/** What came of pushing events. */
struct PushResult {
    std::uint64_t answered = 0;
    std::string firstError;
    /** It has the client and the error in it. */
    std::string firstMessage;
};

/** Calls the objects that the client processes serve. Answers arrive on the main loop, calls are not awaited. */
class ClientLink {
public:
    using OnAnswer = std::function<void(const ClientAnswer&)>;
    using OnPushed = std::function<void(const PushResult&)>;

    ClientLink(ObjectRef<GDBusConnection> connection, Trace trace) : connection_(std::move(connection)), trace_(trace)
    {
    }

    /** Whether object and names of a client can be formed from the id. */
    static bool IsUsable(const std::string& clientId);

    /** Calls a method with a tuple of arguments. Throws BusError for an id or a method name that cannot be used. */
    void Call(
        const std::string& clientId, const std::string& method, GVariant* arguments, unsigned timeoutMs,
        OnAnswer onAnswer) const;

    /**
     * Pushes the payload to each of the clients, count times, each push behind the other without awaiting answers.
     * Throws BusError if one of the ids cannot be used.
     */
    void
    Push(const std::vector<std::string>& clientIds, const Variant& payload, unsigned count, OnPushed onPushed) const;

private:
    ObjectRef<GDBusConnection> connection_;
    Trace trace_;
};

} // namespace kiv::simulator
