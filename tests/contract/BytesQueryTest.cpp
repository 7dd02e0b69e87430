#include "contract/BytesQueryTest.h"

namespace kiv::test {

TEST_P(BytesQueryTest, ItsArgumentIsSent)
{
    control_.SetReply(method_, {});
    query_.call();
    ExpectSent(method_ + "(" + query_.sent + ")", query_.signature);
}

TEST_P(BytesQueryTest, ARefusedCallIsMinusOne)
{
    control_.SetFault(method_, kRefusal);
    EXPECT_EQ(query_.call(), -1);
    ExpectLog(LoggedByQuery(Lines{RefusedLine(method_)} + query_.refused));
}

TEST_P(BytesQueryTest, AReplyWithoutBytes)
{
    control_.SetReply(method_, {});
    EXPECT_EQ(query_.call(), query_.noBytes.result);
    ExpectLog(LoggedByQuery(query_.noBytes.lines));
}

TEST_P(BytesQueryTest, AReplyOfAnotherTypeIsOneMoreLine)
{
    for (const WrongReply& reply : WrongReplies("(ay)")) {
        SCOPED_TRACE(reply.value);
        control_.SetFault(method_, reply.Fault());
        platform_log::Clear();
        const Outcome& outcome = std::string(reply.type) == "()" ? query_.noTuple : query_.noBytes;
        EXPECT_EQ(query_.call(), outcome.result);
        ExpectLog(LoggedByQuery(NoBytesLines(method_, method_, reply) + outcome.lines));
    }
}

TEST_P(BytesQueryTest, WithoutTheServerOrTheFeatureItIsMinusOne)
{
    ExpectUnreached(method_, query_.first, [&] { EXPECT_EQ(query_.call(), -1); });
}

} // namespace kiv::test
