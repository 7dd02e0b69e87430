#pragma once

#include "Input.h"
#include "link/Owners.h"

#include <string>

// The bus as the targets provide it: a connection that goes nowhere, and calls that are answered at once. The first
// connection starts no monitor thread.
namespace kiv::fuzz {

// What a call comes to: a tuple, or else an error.
struct Answer {
    link::VariantOwner body;
    std::string error;
};

// The rest of an input as an answer: the D-Bus signature of a body, a NUL, and the body as GVariant serialises it,
// which is taken as it is; or "!", a NUL, and the message of an error. What is no signature stands for "ay".
Answer ReadAnswer(Input& input);

enum class Question {
    kOwner,    // of the server's bus name
    kClientId, // of this process
    kRequest   // all else
};

// Answers a question so as long as it lives. Otherwise there is a server, which gives out kOrdinaryId as an id, and
// says no more to any request.
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

// Has the library's client connect.
void Connect();

// References to the connection.
unsigned ConnectionReferences();

} // namespace kiv::fuzz
