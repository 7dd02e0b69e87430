#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kiv::sandbox {

class Connection;

/// A message as it travelled on the bus. Header fields that it lacks are empty or 0.
struct Message {
    GDBusMessageType type = G_DBUS_MESSAGE_TYPE_INVALID;
    GDBusMessageFlags flags = G_DBUS_MESSAGE_FLAGS_NONE;
    std::uint32_t serial = 0;
    std::uint32_t replySerial = 0;
    std::string sender;
    std::string destination;
    std::string path;
    std::string interface;
    std::string member;
    std::string errorName;
    std::string signature;
    std::shared_ptr<GVariant> body; ///< always a tuple; null for a message without a body

    std::string TypedBodyText() const; ///< as BodyText(), with types, so that it can be read back as the same
    std::string ErrorText() const;     ///< of an error, its first value if that is a text
    std::string BodyText() const; ///< the whole body as GVariant text without type annotations; "()" without a body
};

/// Tells whether the message calls a method of the network-speaker server.
bool IsServerCall(const Message& message);

/**
 * One line for people, the caller on the left: ":1.5 -> org.freedesktop.DBus NameHasOwner('org.example')" and
 * ":1.5 <- org.freedesktop.DBus returns (true)". Long byte arrays and strings are cut.
 */
std::string Describe(const Message& message);

/**
 * Sees every message on a bus, in the order in which the bus handles them, from construction on. Its own messages are
 * left out. It opens connections of its own, apart from the shared connection that GIO keeps for the process. It ends
 * with the daemon: a bus that is started again needs a new trace. Any thread may use it.
 */
class BusTrace {
public:
    using Listener = std::function<void(const Message&)>;

    /// Collects the messages for Messages(). Throws std::runtime_error if the bus refuses.
    explicit BusTrace(const std::string& address);
    /// Hands each message over as it passes and keeps none. The listener runs on a thread of the trace,
    /// which it must not call.
    BusTrace(const std::string& address, Listener listener);
    ~BusTrace();
    BusTrace(const BusTrace&) = delete;
    BusTrace& operator=(const BusTrace&) = delete;

    /// Everything that the bus has handled up to now.
    std::vector<Message> Messages();
    /// Forgets everything that the bus has handled up to now.
    void Clear();
    /// Returns when everything that the bus has handled up to now has been collected or handed over.
    void Flush();

private:
    struct Tap;

    std::mutex flushMutex_;
    Tap* tap_ = nullptr; // of monitor_
    std::unique_ptr<Connection> fence_;
    std::unique_ptr<Connection> monitor_;
};

} // namespace kiv::sandbox
