#pragma once

#include "link/Bytes.h"
#include "link/Log.h"
#include "link/Owners.h"
#include "link/Reply.h"

#include <utility>

namespace kiv::link {

/*
 * The frame of an exported function, on whose behalf it logs: first Ready(), then calls on the server. All go over the
 * connection on which the server was reached.
 */
class ApiCall {
public:
    explicit ApiCall(const Here& here) : here_(here) {}
    // Serves a function that reaches the server in its own way: calls go over this connection, null if there is none.
    ApiCall(const Here& here, ConnectionOwner connection) : here_(here), connection_(std::move(connection)) {}

    // Whether calls can be made: the device has network speakers and the server gave this process its id, having been
    // started if need be.
    bool Ready();

    // The first half of Ready(): everything up to the end of the first attempt to reach the server.
    enum class Attempt { kRefused, kUnreachable, kReady };
    Attempt TryOnce();

    bool HasConnection() const { return connection_ != nullptr; }
    // Hands the connection over, for calls on behalf of another function.
    ConnectionOwner TakeConnection() { return std::move(connection_); }

    // Calls a server method with an argument tuple, or null for none. A preset stands in the place for the reply if
    // the server is gone before it is called. Functions that would log the missing reply
    // pass one.
    Reply Invoke(const char* method, GVariant* input = nullptr, VariantOwner preset = nullptr) const;

    // The server's answer where it is an int. A failed call is logged, and gives -1.
    int AnswerOrMinusOne(const char* method, GVariant* input = nullptr) const;
    // The same, but a failed call gives 0, and the answer is logged.
    int AnswerOrZero(const char* method, GVariant* input) const;

private:
    bool GetProxy(bool reuse, bool noOwnerCheck);

    const Here here_;
    ConnectionOwner connection_;
};

// The argument tuple of a byte payload, "(ay)". The payload becomes part of it.
GVariant* BytesTuple(Payload payload);

// A text among the arguments. One that is not valid UTF-8 makes the call fail, and is not sent.
GVariant* Text(const char* text);

// The preset of a reply that holds a byte array: an empty one.
VariantOwner NoBytes();

} // namespace kiv::link
