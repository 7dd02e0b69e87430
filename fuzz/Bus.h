#pragma once

#include "KivServiceInterface.h"
#include "fuzz/Input.h"
#include "src/link/Owners.h"

#include <string>

// The bus that the targets use: a connection that is never opened, and calls that are answered at once. The first
// connection of the client starts no monitor thread.
namespace kiv::fuzz {

// The answer to a call: a tuple, or the message of an error if the body is null.
struct Answer {
    link::VariantOwner body;
    std::string error;
};

// Reads the rest of an input as an answer. It is the D-Bus signature of a body, a NUL, and the body's serialised
// GVariant, whose bytes are not checked. Or it is "!", a NUL, and the message of an error. A text that is not a
// signature stands for "ay".
Answer ReadAnswer(Input& input);

enum class Question {
    kOwner,    // whether the server's bus name has an owner
    kClientId, // which id this process has
    kRequest   // any other call
};

// Answers a question in this way while the object lives. Otherwise the server's name has an owner, the id is
// kOrdinaryId, and every other call is answered with an empty tuple.
class Answering {
public:
    Answering(Question question, const Answer& answer);
    Answering(const Answering&) = delete;
    Answering& operator=(const Answering&) = delete;
    ~Answering();

private:
    const Question question_;
};

inline constexpr const char* kOrdinaryId = "tv_1";

// Returns the library's client.
CNSGdbus& Client();

// Makes it connect.
void Connect();

// Returns the number of references to the connection.
unsigned ConnectionReferences();

} // namespace kiv::fuzz
