#pragma once

#include "link/Bytes.h"
#include "link/Log.h"
#include "link/Owners.h"
#include "link/Reply.h"

#include <utility>

namespace kiv::link {

// Makes the calls of one exported function, and logs in its name: first Ready(), then Invoke(). All calls go over the
// connection on which Ready() reached the server.
class ApiCall {
public:
    explicit ApiCall(const Here& here) : here_(here) {}
    // Serves a function that reaches the server by s_pre_checking(). Calls go over this connection, which may be null.
    ApiCall(const Here& here, ConnectionOwner connection) : here_(here), connection_(std::move(connection)) {}

    // Returns whether calls can be made: the device has network speakers, and the server gave this process its id. If
    // the first attempt does not reach the server, makes the bus start it and tries again.
    bool Ready();

    // Makes only the first attempt of Ready(), which does not start the server.
    enum class Attempt { kRefused, kUnreachable, kReady };
    Attempt TryOnce();

    bool HasConnection() const { return connection_ != nullptr; }
    // Gives the connection away, to the ApiCall of another function.
    ConnectionOwner TakeConnection() { return std::move(connection_); }

    // Calls a server method with an argument tuple, or without arguments if it is null. If the server's name has no
    // owner, nothing is sent, and the reply holds the preset. Functions that would log the missing reply pass a preset.
    Reply Invoke(const char* method, GVariant* input = nullptr, VariantOwner preset = nullptr) const;

    // Returns the int that the method answers. Logs a failed call, and returns -1 for it.
    int AnswerOrMinusOne(const char* method, GVariant* input = nullptr) const;
    // Does the same, but returns 0 for a failed call, and logs the answer.
    int AnswerOrZero(const char* method, GVariant* input) const;

private:
    bool GetProxy(bool reuse, bool noOwnerCheck);

    const Here here_;
    ConnectionOwner connection_;
};

// Returns the argument tuple "(ay)" with the bytes of a payload. The tuple takes their memory over.
GVariant* BytesTuple(Payload payload);

// Returns a text as an argument. A call with a text that is not valid UTF-8 fails, and is not sent.
GVariant* Text(const char* text);

// Returns the preset of a reply that holds a byte array: a tuple with an empty one.
VariantOwner NoBytes();

} // namespace kiv::link
