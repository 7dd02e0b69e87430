#include "tools/sandbox/BusTrace.h"

#include "sandbox/Calls.h"
#include "simulator/Glib.h"
#include "tools/sandbox/Connection.h"
#include "tools/sandbox/PrivateBus.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace kiv::sandbox::bus_trace_test {

namespace {

constexpr auto kDaemon = "org.freedesktop.DBus";
constexpr auto kName = "org.lumra.tv.sandboxtest.service";

std::vector<std::string> Lines(const std::vector<Message>& messages)
{
    std::vector<std::string> lines;
    for (const Message& message : messages) {
        lines.push_back(Describe(message));
    }
    return lines;
}

class BusTraceTest : public testing::Test {
protected:
    PrivateBus bus_;
    Connection caller_{bus_.Address()};
    std::string me_ = caller_.UniqueName();
};

TEST_F(BusTraceTest, KeepsTheHeaderAndTheBodyOfACallAndItsAnswer)
{
    BusTrace trace(bus_.Address());

    HasOwner(caller_, kName);

    const std::vector<Message> messages = trace.Messages();
    ASSERT_EQ(messages.size(), 2U);
    const Message& call = messages[0];
    EXPECT_EQ(call.type, G_DBUS_MESSAGE_TYPE_METHOD_CALL);
    EXPECT_EQ(call.flags, G_DBUS_MESSAGE_FLAGS_NONE);
    EXPECT_EQ(call.sender, me_);
    EXPECT_EQ(call.destination, kDaemon);
    EXPECT_EQ(call.path, "/org/freedesktop/DBus");
    EXPECT_EQ(call.interface, "org.freedesktop.DBus");
    EXPECT_EQ(call.member, "NameHasOwner");
    EXPECT_EQ(call.signature, "s");
    EXPECT_EQ(call.BodyText(), "('org.lumra.tv.sandboxtest.service',)");
    const Message& answer = messages[1];
    EXPECT_EQ(answer.type, G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
    EXPECT_EQ(answer.flags, G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    EXPECT_EQ(answer.replySerial, call.serial);
    EXPECT_EQ(answer.sender, kDaemon);
    EXPECT_EQ(answer.destination, me_);
    EXPECT_EQ(answer.path, "");
    EXPECT_EQ(answer.BodyText(), "(false,)");
}

TEST_F(BusTraceTest, LeavesOutItsOwnMessages)
{
    BusTrace trace(bus_.Address());

    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(Lines(trace.Messages()), std::vector<std::string>{});
    }
}

TEST_F(BusTraceTest, IsCompleteAndInOrder)
{
    BusTrace trace(bus_.Address());

    for (int round = 0; round < 200; ++round) {
        HasOwner(caller_, kName);
        const std::vector<Message> messages = trace.Messages();
        ASSERT_EQ(messages.size(), 2U * (static_cast<std::size_t>(round) + 1));
        ASSERT_EQ(messages.back().replySerial, messages[messages.size() - 2].serial);
    }
}

TEST_F(BusTraceTest, SeesSignalsAndErrors)
{
    BusTrace trace(bus_.Address());

    RequestName(caller_, kName);
    Ping(caller_, "org.lumra.tv.sandboxtest.unknown");

    EXPECT_EQ(
        Lines(trace.Messages()),
        (std::vector<std::string>{
            me_ + " -> org.freedesktop.DBus RequestName('org.lumra.tv.sandboxtest.service', 0)",
            "org.freedesktop.DBus -> all signal NameOwnerChanged('org.lumra.tv.sandboxtest.service', '', '" + me_ +
                "')",
            "org.freedesktop.DBus -> " + me_ + " signal NameAcquired('org.lumra.tv.sandboxtest.service')",
            me_ + " <- org.freedesktop.DBus returns (1)",
            me_ + " -> org.lumra.tv.sandboxtest.unknown Ping()",
            me_ + " <- org.freedesktop.DBus error org.freedesktop.DBus.Error.ServiceUnknown ('The name "
                  "org.lumra.tv.sandboxtest.unknown was not provided by any .service files')",
        }));
}

TEST_F(BusTraceTest, DoesNotAnswerTheCallsOfOthers)
{
    const Connection callee(bus_.Address());
    BusTrace trace(bus_.Address());

    Ping(caller_, callee.UniqueName());

    EXPECT_EQ(
        Lines(trace.Messages()),
        (std::vector<std::string>{
            me_ + " -> " + callee.UniqueName() + " Ping()", me_ + " <- " + callee.UniqueName() + " returns ()"}));
}

TEST_F(BusTraceTest, ClearForgetsWhatWasBefore)
{
    BusTrace trace(bus_.Address());
    HasOwner(caller_, kName);

    trace.Clear();
    Ping(caller_, kDaemon);

    EXPECT_EQ(
        Lines(trace.Messages()),
        (std::vector<std::string>{
            me_ + " -> org.freedesktop.DBus Ping()", me_ + " <- org.freedesktop.DBus returns ()"}));
}

TEST_F(BusTraceTest, ListenerGetsMessagesAsTheyPass)
{
    std::vector<std::string> members;
    {
        BusTrace trace(bus_.Address(), [&](const Message& message) { members.push_back(message.member); });
        HasOwner(caller_, kName);
        trace.Flush();
        EXPECT_EQ(members, (std::vector<std::string>{"NameHasOwner", ""}));
        EXPECT_TRUE(trace.Messages().empty());
    }
    HasOwner(caller_, kName);
    EXPECT_EQ(members.size(), 2U);
}

TEST_F(BusTraceTest, TwoTracesSeeTheSame)
{
    BusTrace first(bus_.Address());
    BusTrace second(bus_.Address());

    HasOwner(caller_, kName);

    for (BusTrace* trace : {&first, &second}) {
        const std::vector<Message> messages = trace->Messages();
        EXPECT_EQ(
            std::count_if(
                messages.begin(), messages.end(),
                [&](const Message& message) { return message.sender == me_ || message.destination == me_; }),
            2);
    }
}

TEST_F(BusTraceTest, OutlivesTheDaemon)
{
    BusTrace trace(bus_.Address());
    HasOwner(caller_, kName);

    bus_.Kill();

    trace.Flush();
    bus_.Start();
    const Connection again(bus_.Address());
    BusTrace next(bus_.Address());
    HasOwner(again, kName);
    EXPECT_EQ(next.Messages().size(), 2U);
}

TEST_F(BusTraceTest, NeedsABus)
{
    bus_.Kill();

    EXPECT_THROW(BusTrace{bus_.Address()}, std::runtime_error);
}

TEST_F(BusTraceTest, AnyThreadMayAsk)
{
    BusTrace trace(bus_.Address());
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index) {
        threads.emplace_back([&] {
            const Connection connection(bus_.Address());
            for (int round = 0; round < 20; ++round) {
                HasOwner(connection, kName);
                std::size_t own = 0;
                for (const Message& message : trace.Messages()) {
                    own += message.sender == connection.UniqueName() && message.member == "NameHasOwner" ? 1U : 0U;
                }
                EXPECT_EQ(own, static_cast<std::size_t>(round) + 1);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

Message Call(GVariant* body)
{
    Message message;
    message.type = G_DBUS_MESSAGE_TYPE_METHOD_CALL;
    message.sender = ":1.5";
    message.destination = "org.example";
    message.member = "Do";
    message.body.reset(g_variant_ref_sink(body), g_variant_unref);
    return message;
}

GVariant* Bytes(std::size_t count)
{
    return g_variant_new("(@ay)", simulator::NewByteArray(std::vector<std::uint8_t>(count, 0xab)));
}

TEST(DescribeTest, ShowsBytesInHexadecimal)
{
    EXPECT_EQ(Describe(Call(Bytes(0))), ":1.5 -> org.example Do([])");
    EXPECT_EQ(Describe(Call(Bytes(2))), ":1.5 -> org.example Do([ab ab])");
}

TEST(DescribeTest, CutsLongArraysAndStrings)
{
    const auto repeated = [](const std::string& text, int count) {
        return fmt::format("{}", fmt::join(std::vector(static_cast<std::size_t>(count), text), ""));
    };
    EXPECT_EQ(Describe(Call(Bytes(33))), ":1.5 -> org.example Do([33 bytes: " + repeated("ab ", 32) + "...])");
    EXPECT_EQ(Describe(Call(Bytes(32))).find("bytes"), std::string::npos);

    EXPECT_EQ(
        Describe(Call(g_variant_new("(s)", repeated("ü", 200).c_str()))),
        ":1.5 -> org.example Do('" + repeated("ü", 119) + "...)");
}

TEST(DescribeTest, ShowsNestedValues)
{
    EXPECT_EQ(
        Describe(Call(g_variant_new_parsed("(1, true, ['a', 'b'], {'k': <@ay [0x01]>}, (@as [],))"))),
        ":1.5 -> org.example Do(1, true, ['a', 'b'], ['k': <[01]>], ([]))");
}

TEST(DescribeTest, NamesTheFlagsOfACall)
{
    Message message = Call(g_variant_new("()"));
    message.flags =
        static_cast<GDBusMessageFlags>(G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED | G_DBUS_MESSAGE_FLAGS_NO_AUTO_START);

    EXPECT_EQ(Describe(message), ":1.5 -> org.example Do() [no reply expected] [no auto-start]");
}

} // namespace

} // namespace kiv::sandbox::bus_trace_test
