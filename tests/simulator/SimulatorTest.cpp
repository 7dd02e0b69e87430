#include "simulator/SimulatorTest.h"

#include "simulator/Interfaces.h"
#include "src/link/Owners.h"
#include "support/Wait.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/wait.h>

#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <mutex>
#include <set>
#include <utility>

namespace kiv::simulator {

namespace {

constexpr int kPatienceMs = std::chrono::milliseconds(test::kPatience).count();

ObjectRef<GDBusMessage> NewCall(
    const char* name, const char* path, const char* interface, const std::string& method, const std::string& arguments)
{
    auto call = OwnObject(g_dbus_message_new_method_call(name, path, interface, method.c_str()));
    g_dbus_message_set_body(call.get(), Value(arguments).get());
    return call;
}

std::string Outcome(GDBusMessage* reply)
{
    link::ErrorOwner error;
    if (g_dbus_message_to_gerror(reply, error.Out()) != FALSE) {
        g_dbus_error_strip_remote_error(error.get());
        return fmt::format("error {}: {}", g_dbus_message_get_error_name(reply), error->message);
    }
    GVariant* body = g_dbus_message_get_body(reply);
    return body == nullptr ? "()" : TakeText(g_variant_print(body, FALSE));
}

// Gets a message before GIO does. Returns whether GIO is to ignore it.
using Filter = std::function<bool(GDBusConnection*, GDBusMessage*)>;

GDBusMessage* OnMessage(GDBusConnection* connection, GDBusMessage* message, gboolean incoming, void* filter)
{
    if (incoming != FALSE && (*static_cast<Filter*>(filter))(connection, message)) {
        g_object_unref(message);
        return nullptr;
    }
    return message;
}

// Adds a filter. It runs on GIO's thread and can outlive the caller, so it must own its data.
void OnIncoming(GDBusConnection* connection, Filter filter)
{
    g_dbus_connection_add_filter(
        connection, &OnMessage, new Filter(std::move(filter)), [](void* data) { delete static_cast<Filter*>(data); });
}

} // namespace

namespace {

// Returns a command of the simulator that appends its stderr to a file, which can be read while the simulator runs.
std::vector<std::string> Command(const std::vector<std::string>& arguments, const std::filesystem::path& errorFile)
{
    std::vector<std::string> words = {"sh", "-c", R"(exec "$@" 2>>"$0")", errorFile, KIV_SIMULATOR, "--ready-fd", "1"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

} // namespace

Program::Program(const std::vector<std::string>& arguments, const std::filesystem::path& errorFile)
    : errorFile_(errorFile), child_(Command(arguments, errorFile))
{
}

int Program::ExitCode()
{
    const int status = child_.WaitForEnd();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

struct FakeClient::Record {
    Manner manner;
    std::string error;
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Variant> payloads;
    std::vector<std::string> calls;
    std::vector<std::string> arrivals;

    void Note(GDBusMessage* call)
    {
        const std::lock_guard lock(mutex);
        GVariant* body = g_dbus_message_get_body(call);
        const std::string arguments = body == nullptr ? "()" : TakeText(g_variant_print(body, FALSE));
        calls.push_back(g_dbus_message_get_member(call) + arguments);
        if (calls.back().starts_with("nam_notify_subscriber")) {
            payloads.push_back(Own(g_variant_get_child_value(body, 0)));
            arrivals.emplace_back("event");
            arrived.notify_all();
        }
    }

    void NoteAnswer()
    {
        const std::lock_guard lock(mutex);
        arrivals.emplace_back("answer");
    }

    void Answer(GDBusConnection* connection, GDBusMessage* call) const
    {
        const auto reply = OwnObject(
            manner == Manner::kAnswers ? g_dbus_message_new_method_reply(call)
                                       : g_dbus_message_new_method_error_literal(call, error.c_str(), "not now"));
        g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    }

    // Records a message if it is a call. Returns whether it is.
    bool OnMessage(GDBusConnection* connection, GDBusMessage* message)
    {
        const GDBusMessageType type = g_dbus_message_get_message_type(message);
        if (type == G_DBUS_MESSAGE_TYPE_METHOD_RETURN) {
            NoteAnswer();
        }
        if (type != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
            return false;
        }
        Note(message);
        if (manner != Manner::kIsSilent) {
            Answer(connection, message);
        }
        return true;
    }
};

FakeClient::FakeClient(const std::string& address, const std::string& id, Manner manner, const std::string& error)
    : record_(std::make_shared<Record>()), connection_(address)
{
    record_->manner = manner;
    record_->error = error;
    OnIncoming(connection_.Get(), [record = record_](GDBusConnection* connection, GDBusMessage* message) {
        return record->OnMessage(connection, message);
    });
    connection_.CallDaemon(
        "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", ("org.lumra.tv.networkspeaker.client." + id).c_str(), 0));
}

void FakeClient::Tell(const char* method, int pid) const
{
    Ask(method, fmt::format("({},)", pid));
}

void FakeClient::Ask(const char* method, const std::string& arguments) const
{
    const Variant reply = Own(g_dbus_connection_call_sync(
        connection_.Get(), kServerName, kServerPath, "org.lumra.tv.networkspeaker.server.interface", method,
        Value(arguments).get(), nullptr, G_DBUS_CALL_FLAGS_NONE, kPatienceMs, nullptr, nullptr));
}

std::vector<Bytes> FakeClient::Payloads(std::size_t atLeast) const
{
    std::unique_lock lock(record_->mutex);
    test::WaitUntil(fmt::format("{} payloads", atLeast), record_->arrived, lock, [&] {
        return record_->payloads.size() >= atLeast;
    });
    std::vector<Bytes> payloads;
    for (const Variant& array : record_->payloads) {
        payloads.push_back(BytesOf(array.get()));
    }
    return payloads;
}

std::vector<std::string> FakeClient::Calls() const
{
    const std::lock_guard lock(record_->mutex);
    return record_->calls;
}

std::vector<std::string> FakeClient::Arrivals() const
{
    const std::lock_guard lock(record_->mutex);
    return record_->arrivals;
}

struct SimulatorTest::Answers {
    std::mutex mutex;
    std::condition_variable arrived;
    std::set<unsigned> serials;

    void Note(unsigned serial)
    {
        const std::lock_guard lock(mutex);
        serials.insert(serial);
        arrived.notify_all();
    }
};

SimulatorTest::SimulatorTest() : answers_(std::make_shared<Answers>())
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.Address().c_str(), 1);
    // Any warning of GLib ends the simulator, whatever a test does.
    setenv("G_DEBUG", "fatal-warnings", 1);
    connection_.emplace(bus_.Address());
    OnIncoming(connection_->Get(), [answers = answers_](GDBusConnection*, GDBusMessage* message) {
        answers->Note(g_dbus_message_get_reply_serial(message));
        return false;
    });
}

void SimulatorTest::Start(const std::vector<std::string>& arguments)
{
    program_.emplace(arguments, bus_.Directory() / "errors");
    ASSERT_EQ(program_->Ready(), "ready\n") << program_->Errors();
}

Program SimulatorTest::WithScenario(const std::string& scenario)
{
    const std::filesystem::path file = bus_.Directory() / "scenario.json";
    std::ofstream(file) << scenario;
    return Program({"--scenario", file}, bus_.Directory() / "errors");
}

std::string SimulatorTest::Server(const std::string& method, const std::string& arguments)
{
    return Call(kServerName, kServerPath, "org.lumra.tv.networkspeaker.server.interface", method, arguments);
}

std::string SimulatorTest::Control(const std::string& method, const std::string& arguments)
{
    return Call(kControlName, kControlPath, "org.lumra.tv.networkspeaker.simulator.control", method, arguments);
}

std::string SimulatorTest::Call(
    const char* name, const char* path, const char* interface, const std::string& method, const std::string& arguments)
{
    link::ErrorOwner error;
    const auto reply = OwnObject(g_dbus_connection_send_message_with_reply_sync(
        connection_->Get(), NewCall(name, path, interface, method, arguments).get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
        kPatienceMs, nullptr, nullptr, error.Out()));
    return reply == nullptr ? error->message : Outcome(reply.get());
}

unsigned SimulatorTest::SendToServer(const std::string& method, const std::string& arguments, GDBusMessageFlags flags)
{
    const auto call =
        NewCall(kServerName, kServerPath, "org.lumra.tv.networkspeaker.server.interface", method, arguments);
    g_dbus_message_set_flags(call.get(), flags);
    unsigned serial = 0;
    g_dbus_connection_send_message(connection_->Get(), call.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, &serial, nullptr);
    return serial;
}

bool SimulatorTest::IsAnswered(unsigned serial) const
{
    const std::lock_guard lock(answers_->mutex);
    return answers_->serials.contains(serial);
}

void SimulatorTest::AwaitAnswer(unsigned serial)
{
    std::unique_lock lock(answers_->mutex);
    test::WaitUntil(fmt::format("the answer to call {}", serial), answers_->arrived, lock, [&] {
        return answers_->serials.contains(serial);
    });
}

bool SimulatorTest::HasOwner(const std::string& name)
{
    const std::string answer = Call(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
        fmt::format("('{}',)", name));
    return answer == "(true,)";
}

nlohmann::json SimulatorTest::State()
{
    const Variant answer = Value(Control("Show"));
    const char* text = nullptr;
    g_variant_get(answer.get(), "(&s)", &text);
    return nlohmann::json::parse(text);
}

std::optional<Bytes> AnsweredBytes(const std::string& answer)
{
    GVariant* parsed = g_variant_parse(G_VARIANT_TYPE("(ay)"), answer.c_str(), nullptr, nullptr, nullptr);
    if (parsed == nullptr) {
        return std::nullopt;
    }
    return BytesOf(Own(g_variant_get_child_value(Own(parsed).get(), 0)).get());
}

Mac SpeakerMac(std::uint8_t lastByte)
{
    return {0x02, 0x4b, 0x49, 0x56, 0x00, lastByte};
}

std::string MacArguments(std::uint8_t lastByte)
{
    return fmt::format("byte {}", fmt::join(SpeakerMac(lastByte), ", byte "));
}

Bytes Joined(const std::vector<Bytes>& parts)
{
    Bytes bytes;
    for (const Bytes& part : parts) {
        bytes.insert(bytes.end(), part.begin(), part.end());
    }
    return bytes;
}

Bytes StartRecord(int config, std::uint8_t lastMacByte)
{
    return Writer().Int32(0).Int32(config).Append(SpeakerMac(lastMacByte)).ToSize(86).Written();
}

std::string Records(const std::vector<Bytes>& records)
{
    return fmt::format("(@ay [{}],)", fmt::join(Joined(records), ", "));
}

} // namespace kiv::simulator
