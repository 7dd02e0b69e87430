#include "support/Server.h"

#include "simulator/Glib.h"
#include "support/Wait.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace kiv::test {

namespace {

constexpr const char* kControlName = "org.lumra.tv.networkspeaker.simulator";
constexpr const char* kControlPath = "/org/lumra/tv/networkspeaker/simulator";
constexpr const char* kControlInterface = "org.lumra.tv.networkspeaker.simulator.control";
constexpr int kPatienceMs = std::chrono::milliseconds(kPatience).count();

[[noreturn]] void Fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::shared_ptr<GVariant> Share(GVariant* value)
{
    return {value, g_variant_unref};
}

GVariant* ByteArray(const std::vector<unsigned char>& bytes)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
}

std::string Text(GVariant* value)
{
    return simulator::TakeText(g_variant_print(value, FALSE));
}

std::shared_ptr<GVariant> Parse(const std::string& text, const char* type)
{
    link::ErrorOwner error;
    GVariant* value =
        g_variant_parse(type != nullptr ? G_VARIANT_TYPE(type) : nullptr, text.c_str(), nullptr, nullptr, error.Out());
    if (value == nullptr) {
        throw std::runtime_error(text + ": " + error->message);
    }
    return Share(value);
}

// Waits until the other end has written something. Returns false if it ended without.
bool Announced(int readEnd)
{
    WaitUntilReadable("the simulator to come up", readEnd);
    char byte = 0;
    return read(readEnd, &byte, 1) == 1;
}

} // namespace

Server::Server(const std::string& setUp)
{
    std::string setUpFile;
    if (!setUp.empty()) {
        char name[] = "/tmp/kiv-set-up-XXXXXX";
        close(mkstemp(name));
        setUpFile = name;
        std::ofstream(setUpFile) << setUp;
    }
    int ready[2];
    if (pipe(ready) != 0) {
        Fail("pipe");
    }
    const std::string readyFd = std::to_string(ready[1]);
    std::vector<const char*> command{KIV_SIMULATOR, "--ready-fd", readyFd.c_str()};
    if (!setUpFile.empty()) {
        command.insert(command.end(), {"--scenario", setUpFile.c_str()});
    }
    command.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(ready[0]);
        execv(KIV_SIMULATOR, const_cast<char* const*>(command.data()));
        _exit(127);
    }
    close(ready[1]);
    const bool announced = pid_ > 0 && Announced(ready[0]);
    close(ready[0]);
    if (!setUpFile.empty()) {
        std::remove(setUpFile.c_str());
    }
    if (!announced) {
        throw std::runtime_error("the simulator ended before it was ready");
    }
}

Server::~Server()
{
    Kill();
}

void Server::Kill()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }
}

std::shared_ptr<GVariant> ServerControl::Call(const char* method, GVariant* arguments)
{
    link::ErrorOwner error;
    GVariant* reply = g_dbus_connection_call_sync(
        connection_.Get(), kControlName, kControlPath, kControlInterface, method, arguments, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, kPatienceMs, nullptr, error.Out());
    if (reply == nullptr) {
        throw std::runtime_error(std::string(method) + ": " + error->message);
    }
    return Share(reply);
}

std::vector<ServerCall> ServerControl::Calls()
{
    std::vector<ServerCall> calls;
    const auto reply = Call("Calls", nullptr);
    GVariantIter* records = nullptr;
    g_variant_get(reply.get(), "(a(ussuv))", &records);
    guint number = 0;
    guint flags = 0;
    const char* sender = nullptr;
    const char* method = nullptr;
    GVariant* body = nullptr;
    while (g_variant_iter_loop(records, "(u&s&suv)", &number, &sender, &method, &flags, &body) != FALSE) {
        calls.push_back({sender, method, flags, Text(body), Share(g_variant_ref(body))});
    }
    g_variant_iter_free(records);
    return calls;
}

std::vector<std::string> ServerControl::Methods()
{
    std::vector<std::string> methods;
    for (const ServerCall& call : Calls()) {
        methods.push_back(call.method);
    }
    return methods;
}

void ServerControl::ForgetCalls()
{
    Call("ForgetCalls", nullptr);
}

void ServerControl::SetFault(const std::string& method, const std::string& fault)
{
    Call("Fault", g_variant_new("(s@a{sv})", method.c_str(), Parse(fault, "a{sv}").get()));
}

void ServerControl::SetReply(const std::string& method, const std::vector<unsigned char>& bytes)
{
    GVariantDict fault;
    g_variant_dict_init(&fault, nullptr);
    g_variant_dict_insert(&fault, "reply", "(@ay)", ByteArray(bytes));
    Call("Fault", g_variant_new("(s@a{sv})", method.c_str(), g_variant_dict_end(&fault)));
}

void ServerControl::ClearFaults()
{
    Call("ClearFaults", nullptr);
}

void ServerControl::SetClientId(const std::string& id)
{
    Call("ClientId", g_variant_new("(s)", id.c_str()));
}

void ServerControl::ResetClientId()
{
    Call("ResetClientId", nullptr);
}

void ServerControl::SetAtmos(bool supported)
{
    Call("Atmos", g_variant_new("(b)", supported));
}

void ServerControl::SendEvent(int eventId, const std::vector<unsigned char>& data)
{
    Call("Event", g_variant_new("(si@ay)", "", eventId, ByteArray(data)));
}

void ServerControl::SendPayload(const std::vector<unsigned char>& payload)
{
    Call("Payload", g_variant_new("(s@ay)", "", ByteArray(payload)));
}

unsigned ServerControl::SendPayloads(const std::vector<unsigned char>& payload, unsigned count)
{
    guint answered = 0;
    const auto reply = Call("Payloads", g_variant_new("(s@ayu)", "", ByteArray(payload), count));
    g_variant_get(reply.get(), "(u)", &answered);
    return answered;
}

ServerControl::ClientAnswer ServerControl::CallClient(
    const std::string& client, const std::string& method, const std::string& arguments, unsigned timeoutMs)
{
    const auto reply = Call(
        "CallClient",
        g_variant_new("(ssvu)", client.c_str(), method.c_str(), Parse(arguments, nullptr).get(), timeoutMs));
    gboolean answered = FALSE;
    const char* error = nullptr;
    GVariant* result = nullptr;
    g_variant_get(reply.get(), "(b&sv)", &answered, &error, &result);
    const auto owned = Share(result);
    return {answered != FALSE, error, Text(result)};
}

bool ServerControl::Reaches(const std::string& client)
{
    return CallClient(client, "nam_notify_subscriber", "(@ay [],)", 20'000).answered;
}

void ServerControl::WaitForOwner(const std::string& name)
{
    WaitForOwner(name, true);
}

void ServerControl::WaitForNoOwner(const std::string& name)
{
    WaitForOwner(name, false);
}

void ServerControl::WaitForOwner(const std::string& name, bool owned)
{
    struct Watch {
        bool owned = false;
        bool known = false;
    } watch;
    const auto onOwned = [](GDBusConnection*, const gchar*, const gchar*, gpointer data) {
        *static_cast<Watch*>(data) = {true, true};
    };
    const auto onVanished = [](GDBusConnection*, const gchar*, gpointer data) {
        *static_cast<Watch*>(data) = {false, true};
    };
    g_main_context_push_thread_default(connection_.Context());
    const guint id = g_bus_watch_name_on_connection(
        connection_.Get(), name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, onOwned, onVanished, &watch, nullptr);
    WaitUntil("the bus to say that " + name + (owned ? " has an owner" : " has no owner"), [&] {
        while (g_main_context_iteration(connection_.Context(), FALSE) != FALSE) {
        }
        return watch.known && watch.owned == owned;
    });
    g_bus_unwatch_name(id);
    g_main_context_pop_thread_default(connection_.Context());
}

std::vector<unsigned char> Payload(std::int32_t eventId, std::int32_t length, const std::vector<unsigned char>& data)
{
    const std::int32_t header[] = {eventId, length};
    std::vector<unsigned char> payload(sizeof header + data.size());
    std::memcpy(payload.data(), header, sizeof header);
    std::copy(data.begin(), data.end(), payload.begin() + sizeof header);
    return payload;
}

} // namespace kiv::test
