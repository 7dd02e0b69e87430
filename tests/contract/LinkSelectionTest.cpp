#include "contract/RequestTest.h"

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
        .preset = 0,
        .failed = {"E " + function + ": MethodCall Error"},
        .failure = 0,
        .first = first,
    };
}

INSTANTIATE_TEST_SUITE_P(
    LinkSelection, RequestTest,
    ::testing::Values(
        Question("CanCancelTavrin", CanCancelTavrin, {}), Question("PreSelectTavrin", PreSelectTavrin, {}),
        Question("CanSelectTavrin", CanSelectTavrin, {"D CanSelectTavrin: Enter"})),
    NameOf());

} // namespace
