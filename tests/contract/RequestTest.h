#pragma once

#include "ApiTest.h"

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
    Lines failed = {};                              // its lines if the call fails
    int failure = 0;                                // its result if the call fails
    Lines first = {};                               // its lines before all others
    Lines before = {};                              // its lines before it calls the server's method
    std::string frame = {};                         // the name under which its frame is logged, its own by default
};

inline void PrintTo(const Request& request, std::ostream* out)
{
    *out << request.name;
}

inline std::string NameOf(const ::testing::TestParamInfo<Request>& request)
{
    return request.param.name;
}

class RequestTest : public ApiTest, public ::testing::WithParamInterface<Request> {
protected:
    // Expects that the function sends its arguments, and logs and returns the server's answer.
    void ExpectAnswered(int answer)
    {
        SCOPED_TRACE(answer);
        const std::string text = request_.replyType != "(b)" ? std::to_string(answer) : answer != 0 ? "true" : "false";
        control_.SetFault(method_, "{'reply': <(" + text + ",)>}");
        ForgetTraffic();

        EXPECT_EQ(request_.call(), Result(answer));

        EXPECT_THAT(Sent(), ::testing::ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery, request_.sent));
        EXPECT_EQ(SentMessages().back().signature, request_.signature);
        EXPECT_EQ(platform_log::OfTestThread(), Logged(Answered(answer)));
    }

    // Expects failures: the server refuses a call, and dies in another.
    void ExpectFailed()
    {
        ExpectFailed(kRefusal, RefusedLine(method_));
        ExpectFailed(kDeath, DiedLine(method_));
    }

    // Expects one line for a reply of another type, which counts as this answer. A function that ignores the reply logs
    // nothing.
    void ExpectOtherTypes(int countsAs)
    {
        for (const WrongReply& reply : WrongReplies(request_.replyType)) {
            SCOPED_TRACE(reply.value);
            control_.SetFault(method_, reply.Fault());
            platform_log::Clear();
            EXPECT_EQ(request_.call(), Result(countsAs));
            const Lines line = request_.replyType.empty()
                                   ? Lines{}
                                   : Lines{WrongTypeLine(request_.name, method_, request_.replyType, reply.type)};
            EXPECT_EQ(platform_log::OfTestThread(), Logged(line + Answered(countsAs)));
        }
    }

    const Request request_ = Complete(GetParam());
    const std::string method_ = request_.sent.substr(0, request_.sent.find('('));

private:
    static Request Complete(Request request)
    {
        if (request.frame.empty()) {
            request.frame = request.name;
        }
        return request;
    }

    int Result(int answer) const
    {
        if (request_.replyType.empty()) {
            return 0;
        }
        return request_.result ? request_.result(answer) : answer;
    }

    Lines Answered(int answer) const { return request_.answered ? request_.answered(answer) : Lines{}; }

    Lines Logged(const Lines& after) const
    {
        return request_.first + ApiTest::Logged(request_.frame, request_.before, after);
    }

    void ExpectFailed(const std::string& fault, const std::string& line)
    {
        SCOPED_TRACE(fault);
        control_.SetFault(method_, fault);
        platform_log::Clear();
        EXPECT_EQ(request_.call(), request_.failure);
        EXPECT_EQ(platform_log::OfTestThread(), Logged(Lines{line} + request_.failed));
    }
};

} // namespace kiv::test
