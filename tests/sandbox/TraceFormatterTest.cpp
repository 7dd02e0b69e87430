#include "tools/sandbox/TraceFormatter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kiv::sandbox::trace_formatter_test {

namespace {

constexpr auto kDaemon = "org.freedesktop.DBus";
constexpr auto kServer = "org.lumra.tv.networkspeaker.server";

using Lines = std::vector<std::string>;

// Formats messages that the test makes. Hidden messages leave no line.
class TraceFormatterTest : public testing::Test {
protected:
    void Pass(const Message& message)
    {
        if (const auto line = formatter_.Format(message)) {
            lines_.push_back(*line);
        }
    }

    Message Call(const std::string& caller, const std::string& callee, const std::string& method)
    {
        Message call;
        call.type = G_DBUS_MESSAGE_TYPE_METHOD_CALL;
        call.serial = ++serial_;
        call.sender = caller;
        call.destination = callee;
        call.member = method;
        Pass(call);
        return call;
    }

    void Answer(const Message& call, const std::string& sender, const std::string& errorName = "")
    {
        Message answer;
        answer.type = errorName.empty() ? G_DBUS_MESSAGE_TYPE_METHOD_RETURN : G_DBUS_MESSAGE_TYPE_ERROR;
        answer.replySerial = call.serial;
        answer.sender = sender;
        answer.destination = call.sender;
        answer.errorName = errorName;
        Pass(answer);
    }

    void Signal(const std::string& sender, const std::string& name, GVariant* body)
    {
        Message signal;
        signal.type = G_DBUS_MESSAGE_TYPE_SIGNAL;
        signal.sender = sender;
        signal.member = name;
        signal.body.reset(g_variant_ref_sink(body), g_variant_unref);
        const std::string type = g_variant_get_type_string(body);
        signal.signature = type.substr(1, type.size() - 2);
        Pass(signal);
    }

    void ChangeOwner(const char* name, const char* oldOwner, const char* newOwner)
    {
        Signal(kDaemon, "NameOwnerChanged", g_variant_new("(sss)", name, oldOwner, newOwner));
    }

    // Expects that these are the lines of all messages so far.
    void ExpectLines(const Lines& lines) const { EXPECT_EQ(lines_, lines); }

    TraceFormatter formatter_{TraceFormatter::Housekeeping::kHidden};
    Lines lines_;
    guint32 serial_ = 0;
};

TEST_F(TraceFormatterTest, AnswersTellTheirMethod)
{
    const Message first = Call(":1.3", ":1.4", "First");
    const Message second = Call(":1.3", ":1.4", "Second");
    Answer(second, ":1.4");
    Answer(first, ":1.4", "org.example.Failed");

    ExpectLines(
        {":1.3 -> :1.4 First()", ":1.3 -> :1.4 Second()", ":1.3 <- :1.4 returns () [Second]",
         ":1.3 <- :1.4 error org.example.Failed () [First]"});
}

TEST_F(TraceFormatterTest, CallersMayUseTheSameSerial)
{
    const Message first = Call(":1.3", ":1.5", "First");
    serial_ = 0;
    const Message second = Call(":1.4", ":1.5", "Second");
    lines_.clear();
    Answer(first, ":1.5");
    Answer(second, ":1.5");

    ExpectLines({":1.3 <- :1.5 returns () [First]", ":1.4 <- :1.5 returns () [Second]"});
}

TEST_F(TraceFormatterTest, AnswerToAnUnknownCallStandsAlone)
{
    Message call;
    call.sender = ":1.3";
    call.serial = 7;
    Answer(call, ":1.4");

    ExpectLines({":1.3 <- :1.4 returns ()"});
}

TEST_F(TraceFormatterTest, ConnectionGoesByTheNameThatItOwns)
{
    const char* const client = "org.lumra.tv.networkspeaker.client.tv_7";
    Call(":1.3", ":1.4", "Before");
    ChangeOwner(client, "", ":1.3");
    ChangeOwner(kServer, "", ":1.4");
    Call(":1.3", ":1.4", "Within");
    ChangeOwner(client, ":1.3", ":1.5");
    Call(":1.3", ":1.5", "Moved");
    ChangeOwner(client, ":1.5", "");
    Call(":1.5", kServer, "After");

    ExpectLines(
        {":1.3 -> :1.4 Before()", "client.tv_7 -> networkspeaker.server Within()", ":1.3 -> client.tv_7 Moved()",
         ":1.5 -> networkspeaker.server After()"});
}

TEST_F(TraceFormatterTest, OfSeveralNamesTheNewestCountsAndInAnswersTheOneCalled)
{
    ChangeOwner("org.example.sandbox.first", "", ":1.4");
    ChangeOwner("org.example.sandbox.second", "", ":1.4");
    Answer(Call(":1.4", "org.example.sandbox.first", "Do"), ":1.4");
    ChangeOwner("org.example.sandbox.second", ":1.4", "");
    Call(":1.4", ":1.5", "Do");

    ExpectLines(
        {"sandbox.second -> sandbox.first Do()", "sandbox.second <- sandbox.first returns () [Do]",
         "sandbox.first -> :1.5 Do()"});
}

TEST_F(TraceFormatterTest, DaemonAnswersInItsOwnName)
{
    Answer(Call(":1.3", kServer, "Do"), kDaemon, "org.freedesktop.DBus.Error.ServiceUnknown");

    EXPECT_EQ(lines_.back(), ":1.3 <- org.freedesktop.DBus error org.freedesktop.DBus.Error.ServiceUnknown () [Do]");
}

TEST_F(TraceFormatterTest, NamesThatEndAlikeAreShownWhole)
{
    ChangeOwner("org.example.one.client.tv", "", ":1.3");
    Call(":1.3", ":1.5", "Alone");
    ChangeOwner("org.example.two.client.tv", "", ":1.4");
    Call(":1.3", ":1.4", "Together");

    ExpectLines({"client.tv -> :1.5 Alone()", "org.example.one.client.tv -> org.example.two.client.tv Together()"});
}

TEST_F(TraceFormatterTest, ShortNamesStayAsTheyAre)
{
    Call(":1.3", "org.example", "Do");
    Call(":1.3", ".", "Do");

    ExpectLines({":1.3 -> org.example Do()", ":1.3 -> . Do()"});
}

TEST_F(TraceFormatterTest, HidesTheHousekeepingOfTheBus)
{
    for (const char* method :
         {"Hello", "AddMatch", "RemoveMatch", "GetNameOwner", "StartServiceByName", "ReloadConfig"}) {
        Answer(Call(":1.3", kDaemon, method), kDaemon);
        Answer(Call(":1.3", kDaemon, method), kDaemon, "org.freedesktop.DBus.Error.Failed");
    }
    Signal(kDaemon, "NameAcquired", g_variant_new("(s)", kServer));
    Signal(kDaemon, "NameLost", g_variant_new("(s)", kServer));
    Signal(kDaemon, "ActivatableServicesChanged", g_variant_new("()"));
    ChangeOwner(kServer, "", ":1.3");
    ChangeOwner(kServer, ":1.3", "");

    ExpectLines({});
}

TEST_F(TraceFormatterTest, ShowsOtherTrafficOfTheDaemonAndLikeNamesOfOthers)
{
    Answer(Call(":1.3", kDaemon, "NameHasOwner"), kDaemon);
    Answer(Call(":1.3", ":1.4", "Hello"), ":1.4");
    Signal(":1.4", "NameLost", g_variant_new("()"));

    ExpectLines(
        {":1.3 -> org.freedesktop.DBus NameHasOwner()", ":1.3 <- org.freedesktop.DBus returns () [NameHasOwner]",
         ":1.3 -> :1.4 Hello()", ":1.3 <- :1.4 returns () [Hello]", ":1.4 -> all signal NameLost()"});
}

TEST_F(TraceFormatterTest, ShowsHousekeepingOnRequest)
{
    formatter_ = TraceFormatter(TraceFormatter::Housekeeping::kShown);
    Answer(Call(":1.3", kDaemon, "Hello"), kDaemon);
    Signal(kDaemon, "NameLost", g_variant_new("(s)", ":1.3"));

    ExpectLines(
        {":1.3 -> org.freedesktop.DBus Hello()", ":1.3 <- org.freedesktop.DBus returns () [Hello]",
         "org.freedesktop.DBus -> all signal NameLost(':1.3')"});
}

TEST_F(TraceFormatterTest, OnlyTheDaemonTellsWhoOwnsAName)
{
    Signal(":1.4", "NameOwnerChanged", g_variant_new("(sss)", kServer, "", ":1.4"));
    Signal(kDaemon, "NameOwnerChanged", g_variant_new("(s)", kServer));
    Call(":1.4", ":1.3", "Do");

    EXPECT_EQ(lines_.back(), ":1.4 -> :1.3 Do()");
}

} // namespace

} // namespace kiv::sandbox::trace_formatter_test
