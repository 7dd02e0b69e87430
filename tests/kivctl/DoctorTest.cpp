#include "KivctlTest.h"

#include <unistd.h>

#include <map>

namespace kiv::ctl::doctor_test {
namespace {

constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";

class DoctorTest : public KivctlTest {
protected:
    // What the doctor found, by what it looked at. A problem comes with advice, and with exit code 1.
    std::map<std::string, std::string> Examine() const
    {
        const Ended ended = Run({"--json", "doctor"});
        EXPECT_EQ(ended.err, "");
        const Json object = Json::parse(ended.out);
        bool healthy = true;
        std::map<std::string, std::string> found;
        for (const Json& check : object.at("checks")) {
            const std::string state = check.at("state");
            healthy = healthy && state != "problem";
            EXPECT_EQ(check.at("advice") == "", state == "ok") << check;
            found[check.at("check")] = state + ": " + check.at("found").get<std::string>();
        }
        EXPECT_EQ(object.at("result"), healthy);
        EXPECT_EQ(ended.exitCode, healthy ? 0 : 1);
        return found;
    }
};

void ExpectBegins(const std::string& text, const std::string& head)
{
    EXPECT_EQ(text.substr(0, head.size()), head);
}

TEST_F(DoctorTest, FindsNothingWhereAllIsWell)
{
    const Ended text = Run({"doctor"});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_EQ(text.err, "");
    for (const char* line :
         {"ok       feature ", "ok       bus ", "ok       client name ", "ok       activation ", "ok       server ",
          "ok       call ", "ok       client id ", "ok       subscription ", "ok       endpoint ",
          "ok       events        one that was sent arrived\n"}) {
        EXPECT_NE(text.out.find(line), std::string::npos) << line << text.out;
    }
    EXPECT_EQ(text.out.find("->"), std::string::npos) << text.out;
    EXPECT_EQ(Examine().size(), 10U);
}

TEST_F(DoctorTest, FindsThatTheFeatureIsOff)
{
    SwitchFeatureOff();
    const auto found = Examine();
    ExpectBegins(found.at("feature"), "problem: this device has no network speakers");
    ExpectBegins(found.at("client id"), "ok: ");
    EXPECT_FALSE(found.contains("subscription"));
}

TEST_F(DoctorTest, NotesThatTheFeatureCannotBeRead)
{
    RemoveFeature();
    const auto found = Examine();
    ExpectBegins(found.at("feature"), "note: ");
    ExpectBegins(found.at("events"), "ok: ");
}

TEST_F(DoctorTest, FindsThatThereIsNoBus)
{
    bus_.Kill();
    ExpectBegins(Examine().at("bus"), "problem: cannot be reached: ");
}

TEST_F(DoctorTest, FindsThatNobodyCanStartTheServer)
{
    bus_.RemoveService(kServerName);
    EXPECT_EQ(Examine().at("activation"), "problem: the bus cannot start the server, which does not run");
}

TEST_F(DoctorTest, NotesThatNobodyCanStartTheServerAgain)
{
    bus_.Activate(kServerName);
    bus_.RemoveService(kServerName);
    const auto found = Examine();
    EXPECT_EQ(found.at("activation"), "note: the bus cannot start the server; nobody will if it ends");
    ExpectBegins(found.at("events"), "ok: ");
}

TEST_F(DoctorTest, FindsThatTheServerDoesNotStart)
{
    bus_.WriteService({kServerName, {"/bin/false"}});
    const auto found = Examine();
    ExpectBegins(found.at("activation"), "ok: ");
    ExpectBegins(found.at("server"), "problem: does not run: ");
}

TEST_F(DoctorTest, FindsThatTheServerDoesNotAnswerAsItShould)
{
    SetFault("check_dbus_connection", "error", "'org.example.Broken'");
    ExpectBegins(Examine().at("call"), "problem: the server cannot be asked: ");
    SetFault("check_dbus_connection", "reply", "<(5,)>");
    EXPECT_EQ(Examine().at("call"), "problem: the server answers (i) where a client id is due");
}

TEST_F(DoctorTest, FindsThatAnIdIsUnfit)
{
    g_variant_unref(Control("ClientId", g_variant_new("(s)", "no-path")));
    EXPECT_EQ(Examine().at("client id"), "problem: \"no-path\" makes no D-Bus name, so no events can come");
}

TEST_F(DoctorTest, FindsThatTheServerRefusesEvents)
{
    SetFault("SubscribeNamServiceCallback", "error", "'org.example.Broken'");
    EXPECT_EQ(Examine().at("subscription"), "problem: the request failed, or the server refused it");
}

TEST_F(DoctorTest, FindsThatAnotherProcessHasTheName)
{
    g_variant_unref(Control("ClientId", g_variant_new("(s)", "taken")));
    const sandbox::Connection other(bus_.Address());
    other.CallDaemon(
        "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", "org.lumra.tv.networkspeaker.client.taken", 0U));
    EXPECT_EQ(
        Examine().at("endpoint"), "problem: org.lumra.tv.networkspeaker.client.taken is owned by process " +
                                      std::to_string(getpid()) + ", which gets this one's events");
}

TEST_F(DoctorTest, FindsWhatThePolicyForbids)
{
    Forbid(R"(<deny own_prefix="org.lumra.tv.networkspeaker.client"/>)");
    auto found = Examine();
    ExpectBegins(found.at("client name"), "problem: may not be owned: ");
    EXPECT_FALSE(found.contains("subscription"));

    Forbid(R"(<deny send_destination="org.lumra.tv.networkspeaker.server"
                    send_interface="org.lumra.tv.networkspeaker.server.interface"/>)");
    found = Examine();
    ExpectBegins(found.at("client name"), "ok: ");
    ExpectBegins(found.at("call"), "problem: the server cannot be asked: ");

    Forbid(R"(<deny send_path="*" send_member="nam_notify_subscriber"/>)");
    found = Examine();
    ExpectBegins(found.at("endpoint"), "ok: ");
    ExpectBegins(found.at("events"), "note: the bus lets this user send none");
}

} // namespace
} // namespace kiv::ctl::doctor_test
