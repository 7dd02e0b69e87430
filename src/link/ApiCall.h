#pragma once

#include "link/Bytes.h"
#include "link/Log.h"
#include "link/Owners.h"
#include "link/Reply.h"

#include <optional>
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
    Reply Invoke(const char* method, GVariant* input = nullptr, VariantOwner preset = nullptr) const
    {
        return Call(method, input, preset, false);
    }
    // Does the same, and logs a failed call. All functions below do so, too.
    Reply Request(const char* method, GVariant* input = nullptr, VariantOwner preset = nullptr) const
    {
        return Call(method, input, preset, true);
    }

    // Returns the int that the method answers, or nothing for a failed call. Another type counts as the answer -1: to
    // the host, a server that does not say a number has failed.
    std::optional<int> Answer(const char* method, GVariant* input = nullptr) const;
    // Does the same, and returns kApiFailed for a failed call.
    int AnswerOrFailed(const char* method, GVariant* input = nullptr) const;
    // Does the same, but returns 0 for a failed call, and logs the answer.
    int AnswerOrZero(const char* method, GVariant* input) const;

    // Returns the bool that the method answers, or nothing for a failed call. The preset is the value of Invoke().
    std::optional<bool> Ask(const char* question, bool preset) const;

    // Calls a query that answers with bytes. Leaves a failed call to the caller's use of the reply. Returns nothing if
    // there is no memory for the preset, and logs the condition.
    std::optional<ByteReply> AskForBytes(const char* query, const char* noPreset) const;

    // Tells the server that this process wants events, or no longer does, and notes the client id that it answers.
    // Returns whether the call succeeded. An answer of another type gives no id, so the known one stays.
    bool SendProcessId(const char* method) const;

    // Returns whether an argument is refused. Logs the condition under which it is.
    bool Refuses(bool isUnfit, const char* condition) const
    {
        if (isUnfit) {
            LogRefusal(condition);
        }
        return isUnfit;
    }

private:
    Reply Call(const char* method, GVariant* input, VariantOwner& preset, bool logsFailure) const;
    void LogRefusal(const char* condition) const;
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
