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

// A message on the bus. Header fields that it lacks are empty or 0.
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
    std::shared_ptr<GVariant> body; // always a tuple; null for a message without a body

    std::string TypedBodyText() const; // as BodyText(), with types, so that reading the text gives the same value
    std::string ErrorText() const;     // the text of an error, which is its first value
    std::string BodyText() const;      // the whole body as GVariant text without type annotations; "()" without a body
};

// Returns whether the message calls a method of the network-speaker server.
bool IsServerCall(const Message& message);

// Returns one line for people, with the caller on the left: ":1.5 -> org.freedesktop.DBus NameHasOwner('org.example')"
// and ":1.5 <- org.freedesktop.DBus returns (true)". Long byte arrays and strings are cut.
std::string Describe(const Message& message);

// Sees every message on a bus, in the order in which the bus handles them, from construction on. Leaves out its own
// messages. Opens connections of its own, apart from the shared connection that GIO keeps for the process. Ends with
// the daemon: a bus that is started again needs a new trace. Any thread may use it.
class BusTrace {
public:
    using Listener = std::function<void(const Message&)>;

    // Collects the messages for Messages(). Throws std::runtime_error if the bus refuses.
    explicit BusTrace(const std::string& address);
    // Passes each message to the listener and keeps none. The listener runs on a thread of the trace, and must not call
    // the trace.
    BusTrace(const std::string& address, Listener listener);
    ~BusTrace();
    BusTrace(const BusTrace&) = delete;
    BusTrace& operator=(const BusTrace&) = delete;

    // Returns everything that the bus has handled up to now.
    std::vector<Message> Messages();
    // Forgets everything that the bus has handled up to now.
    void Clear();
    // Returns when everything that the bus has handled up to now has been collected or handed over.
    void Flush();

private:
    struct Tap;

    std::mutex flushMutex_;
    Tap* tap_ = nullptr; // monitor_ owns it
    std::unique_ptr<Connection> fence_;
    std::unique_ptr<Connection> monitor_;
};

} // namespace kiv::sandbox
