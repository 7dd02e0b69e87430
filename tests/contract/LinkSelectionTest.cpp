#include "RequestTest.h"

using namespace kiv::test;

namespace {

Request Question(const std::string& function, bool (*call)(), const Lines& first)
{
    return {
        .name = function,
        .call = [call] { return static_cast<int>(call()); },
        .sent = function + "()",
        .replyType = "(b)",
        .answered =
            [function](int answer) {
                return Lines{"I " + function + ": b" + function + "[" + std::to_string(answer) + "]"};
            },
        .failed = {"E " + function + ": MethodCall Error"},
        .failure = 0,
        .first = first,
    };
}

class LinkSelectionTest : public RequestTest {};

TEST_P(LinkSelectionTest, TheServersAnswerIsReturnedAndLogged)
{
    ExpectAnswered(1);
    ExpectAnswered(0);
}

TEST_P(LinkSelectionTest, AFailedCallIsFalse)
{
    ExpectFailed();
}

TEST_P(LinkSelectionTest, AnAnswerOfAnotherTypeIsOneLineAndFalse)
{
    ExpectOtherTypes(0);
}

INSTANTIATE_TEST_SUITE_P(
    Functions, LinkSelectionTest,
    ::testing::Values(
        Question("CanCancelTavrin", CanCancelTavrin, {}), Question("PreSelectTavrin", PreSelectTavrin, {}),
        Question("CanSelectTavrin", CanSelectTavrin, {"D CanSelectTavrin: Enter"})),
    NameOf);

} // namespace
