#include "contract/RequestTest.h"

#include <climits>

namespace kiv::test {

std::vector<int> RequestTest::Answers() const
{
    return request_.replyType == "(b)" ? std::vector{1, 0}
                                       : std::vector{0, 7, 77, 80, 81, -1, -2, -5, INT_MAX, INT_MIN};
}

void RequestTest::ExpectAnswered(int answer)
{
    SCOPED_TRACE(answer);
    const std::string text = request_.replyType != "(b)" ? std::to_string(answer) : answer != 0 ? "true" : "false";
    control_.SetFault(method_, "{'reply': <(" + text + ",)>}");
    ForgetTraffic();

    EXPECT_EQ(request_.call(), Result(answer));

    ExpectSent(request_.sent, request_.signature);
    ExpectLog(LoggedWith(Answered(answer)));
}

void RequestTest::ExpectFailed(const std::string& fault, const std::string& line)
{
    SCOPED_TRACE(fault);
    control_.SetFault(method_, fault);
    platform_log::Clear();
    const std::time_t before = std::time(nullptr);

    EXPECT_EQ(request_.call(), request_.replyType.empty() ? 0 : request_.failure);

    Lines expected = LoggedWith(Lines{line} + request_.failed);
    if (request_.isTimed) {
        expected = expected + platform_log::OfTestThread().back();
        ExpectTimed(expected.back(), request_.name, before);
    }
    ExpectLog(expected);
}

int RequestTest::Result(int answer) const
{
    if (request_.replyType.empty()) {
        return 0;
    }
    return request_.result ? request_.result(answer) : answer;
}

Lines RequestTest::LoggedWith(const Lines& after) const
{
    return request_.first + Logged(request_.frame.empty() ? request_.name : request_.frame, request_.before, after);
}

TEST_P(RequestTest, TheServersAnswerIsReturnedAndLogged)
{
    for (const int answer : Answers()) {
        ExpectAnswered(answer);
    }
    EXPECT_EQ(m_launchthreadId, 0U);
}

TEST_P(RequestTest, AFailedCallHasAResultAndLinesOfItsOwn)
{
    ExpectFailed(kRefusal, RefusedLine(method_));
    ExpectFailed(kDeath, DiedLine(method_));
}

TEST_P(RequestTest, AnAnswerOfAnotherTypeIsOneLineAndThePreset)
{
    for (const WrongReply& reply : WrongReplies(request_.replyType)) {
        SCOPED_TRACE(reply.value);
        control_.SetFault(method_, reply.Fault());
        platform_log::Clear();
        EXPECT_EQ(request_.call(), Result(request_.preset));
        // A function that ignores the reply logs nothing about it.
        const Lines line = request_.replyType.empty()
                               ? Lines{}
                               : Lines{WrongTypeLine(request_.name, method_, request_.replyType, reply.type)};
        ExpectLog(LoggedWith(line + Answered(request_.preset)));
    }
}

} // namespace kiv::test
