#pragma once

#include "contract/ApiTest.h"

#include <ostream>

namespace kiv::test {

// A function of the library that makes one call, and its expected behaviour. Lines are in their short form.
struct Request {
    std::string name;
    std::function<int()> call; // a flag as 0 or 1; 0 if it returns nothing
    std::string sent;          // method and arguments
    std::string signature = {};
    std::string replyType = {};                     // empty if it ignores the reply
    std::function<Lines(int answer)> answered = {}; // its lines for an answer; none by default
    std::function<int(int answer)> result = {};     // its result: the answer by default, 0 if ignored
    int preset = -1;                                // the answer that a reply of another type stands for
    Lines failed = {};                              // its lines if the call fails
    bool isTimed = false;                           // after these lines, it logs the time of the failure
    int failure = -1;                               // its result if the call fails; 0 if it ignores the reply
    Lines first = {};                               // its lines before all others
    Lines before = {};                              // its lines before it calls the server's method
    std::string frame = {};                         // the name under which its frame is logged, its own by default

    friend void PrintTo(const Request& request, std::ostream* out) { *out << request.name; }
};

// Its tests are the same for all these functions. Each part of the library instantiates them with its own.
class RequestTest : public ApiTest, public ::testing::WithParamInterface<Request> {
protected:
    // Returns answers of the server that have a meaning for some function, and others.
    std::vector<int> Answers() const;
    // Expects that the function sends its arguments, and logs and returns the server's answer.
    void ExpectAnswered(int answer);
    // Expects a failure for a fault of the server, about which the log has a line.
    void ExpectFailed(const std::string& fault, const std::string& line);
    // Returns the result for an answer.
    int Result(int answer) const;
    // Returns the lines for an answer, or of a failure.
    Lines Answered(int answer) const { return request_.answered ? request_.answered(answer) : Lines{}; }
    Lines LoggedWith(const Lines& after) const;

    const Request& request_ = GetParam();
    const std::string method_ = request_.sent.substr(0, request_.sent.find('('));
};

} // namespace kiv::test
