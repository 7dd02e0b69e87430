#include "kivctl/KivctlTest.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kiv::ctl {
namespace {

std::string FeatureFile(const sandbox::PrivateBus& bus)
{
    return bus.Directory() / "features";
}

void WriteFeature(const sandbox::PrivateBus& bus, const char* value)
{
    std::ofstream(FeatureFile(bus)) << "[com.molvane/featureconf]\nkiv_multi_ch_support=" << value << '\n';
}

GVariant* Bytes(const std::string& bytes)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
}

} // namespace

testing::Matcher<Ended>
Ends(int exitCode, const testing::Matcher<std::string>& out, const testing::Matcher<std::string>& err)
{
    using testing::Field;
    return AllOf(
        Field("exitCode", &Ended::exitCode, exitCode), Field("out", &Ended::out, out), Field("err", &Ended::err, err));
}

std::vector<std::string> LinesOf(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

Running::Running(
    const sandbox::PrivateBus& bus, const Arguments& arguments, const Environment& environment, int output,
    const char* program)
{
    std::vector<const char*> argv = {program};
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);

    const int flags = G_SUBPROCESS_FLAGS_STDERR_PIPE | (output < 0 ? G_SUBPROCESS_FLAGS_STDOUT_PIPE : 0);
    const link::ObjectOwner<GSubprocessLauncher> launcher(
        g_subprocess_launcher_new(static_cast<GSubprocessFlags>(flags)));
    if (output >= 0) {
        g_subprocess_launcher_take_stdout_fd(launcher.get(), output);
    }
    g_subprocess_launcher_setenv(launcher.get(), "DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), TRUE);
    g_subprocess_launcher_setenv(launcher.get(), "KIV_SYSTEM_INFO_FILE", FeatureFile(bus).c_str(), TRUE);
    g_subprocess_launcher_setenv(launcher.get(), "KIV_LOG_LEVEL", "none", TRUE);
    g_subprocess_launcher_unsetenv(launcher.get(), "KIV_LAYOUT");
    for (const auto& [name, value] : environment) {
        if (value.empty()) {
            g_subprocess_launcher_unsetenv(launcher.get(), name.c_str());
        } else {
            g_subprocess_launcher_setenv(launcher.get(), name.c_str(), value.c_str(), TRUE);
        }
    }
    link::ErrorOwner error;
    process_.reset(g_subprocess_launcher_spawnv(launcher.get(), argv.data(), error.Out()));
    if (!process_) {
        throw std::runtime_error(error->message);
    }
    out_.reset(output < 0 ? g_data_input_stream_new(g_subprocess_get_stdout_pipe(process_.get())) : nullptr);
    err_.reset(g_data_input_stream_new(g_subprocess_get_stderr_pipe(process_.get())));
}

Running::~Running()
{
    g_subprocess_force_exit(process_.get());
    g_subprocess_wait(process_.get(), nullptr, nullptr);
}

Ended Running::Wait()
{
    Ended ended{-1, out_ ? ReadRest(out_.get()) : "", ReadRest(err_.get())};
    g_subprocess_wait(process_.get(), nullptr, nullptr);
    if (g_subprocess_get_if_exited(process_.get())) {
        ended.exitCode = g_subprocess_get_exit_status(process_.get());
    }
    return ended;
}

std::string Running::ErrLine()
{
    const std::string line = AnyErrLine();
    return line.starts_with("kivctl: asking the server for its events, ") ? AnyErrLine() : line;
}

std::string Running::ReadLine(GDataInputStream* stream)
{
    const link::TextOwner line(g_data_input_stream_read_line(stream, nullptr, nullptr, nullptr));
    return line == nullptr ? "" : line.get();
}

std::string Running::ReadRest(GDataInputStream* stream)
{
    std::string rest;
    char buffer[4096];
    gssize length = 0;
    while ((length = g_input_stream_read(G_INPUT_STREAM(stream), buffer, sizeof buffer, nullptr, nullptr)) > 0) {
        rest.append(buffer, static_cast<size_t>(length));
    }
    return rest;
}

std::string Record(std::int32_t config, const std::string& mac)
{
    std::string record = "0x00, 0x00, 0x00, 0x00, ";
    for (int i = 0; i < 4; ++i) {
        record += fmt::format("{:#04x}, ", (static_cast<std::uint32_t>(config) >> (8 * i)) & 0xff);
    }
    record += mac;
    for (int i = 0; i < 72; ++i) {
        record += ", 0x00";
    }
    return record;
}

std::string ByteArray(size_t size, int value)
{
    std::string array;
    for (size_t i = 0; i < size; ++i) {
        array += (array.empty() ? "[byte " : ", ") + std::to_string(value);
    }
    return array + "]";
}

KivctlTest::KivctlTest()
    : bus_({{{kServerName, {KIV_SIMULATOR}}}, R"(<include ignore_missing="yes">policy.conf</include>)"})
{
    WriteFeature(bus_, "true");
}

Ended KivctlTest::Run(const Arguments& arguments, const Environment& environment) const
{
    return Running(bus_, arguments, environment).Wait();
}

Ended KivctlTest::RunInShell(const std::string& line) const
{
    const std::string folder = std::filesystem::path(KIV_CTL).parent_path();
    const Environment environment = {{"PATH", folder + ":" + getenv("PATH")}};
    return Running(bus_, {"-c", line}, environment, -1, "/bin/sh").Wait();
}

std::string KivctlTest::RunOnTerminal(const Arguments& arguments) const
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    grantpt(terminal);
    unlockpt(terminal);
    const int output = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_GE(output, 0);
    // A terminal keeps its output until the last descriptor of its other end is closed. The output here is short.
    const int open = fcntl(output, F_DUPFD_CLOEXEC, 0);
    EXPECT_EQ(Running(bus_, arguments, {}, output).Wait().exitCode, 0);
    std::array<char, 4096> text{};
    const ssize_t length = read(terminal, text.data(), text.size());
    close(open);
    close(terminal);
    return {text.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

void KivctlTest::ExpectOutput(const Arguments& arguments, const std::string& out) const
{
    EXPECT_THAT(Run(arguments), Ends(0, out + '\n', ""));
}

void KivctlTest::ExpectJson(Arguments arguments, const Json& fields) const
{
    arguments.emplace_back("--json");
    const Ended ended = Run(arguments);
    EXPECT_THAT(ended, Ends(0, _, ""));
    EXPECT_EQ(ended.out.find('\n'), ended.out.size() - 1) << ended.out;
    Json object = Json::parse(ended.out);
    std::string words;
    for (const std::string& argument : arguments) {
        words += argument + ' ';
    }
    EXPECT_THAT(words, StartsWith(object.at("command").get<std::string>() + ' '));
    object.erase("command");
    EXPECT_EQ(object, fields);
}

void KivctlTest::ExpectFailure(Arguments arguments, int exitCode, const std::string& reason) const
{
    SCOPED_TRACE(testing::PrintToString(arguments));
    const Ended text = Run(arguments);
    EXPECT_EQ(text.exitCode, exitCode);
    EXPECT_EQ(text.out, "");
    EXPECT_THAT(text.err, StartsWith("kivctl: "));
    EXPECT_THAT(text.err, HasSubstr(reason));
    EXPECT_EQ(text.err.find('\n'), text.err.size() - 1) << text.err;

    arguments.insert(arguments.begin(), "--json");
    const Ended json = Run(arguments);
    EXPECT_EQ(json.exitCode, exitCode);
    EXPECT_EQ(json.err, "");
    EXPECT_THAT(Json::parse(json.out).at("error").get<std::string>(), HasSubstr(reason)) << json.out;
}

void KivctlTest::ExpectCalls(const std::vector<std::string>& calls) const
{
    EXPECT_EQ(Calls(), calls);
}

void KivctlTest::ExpectRefused(const std::vector<Refusal>& cases) const
{
    for (const auto& [arguments, reason] : cases) {
        ExpectFailure(arguments, 2, reason);
    }
    ExpectCalls({});
}

std::string KivctlTest::WriteFile(const std::string& contents) const
{
    const std::string path = bus_.Directory() / "file";
    std::ofstream(path) << contents;
    return path;
}

void KivctlTest::SwitchFeatureOff() const
{
    WriteFeature(bus_, "false");
}

void KivctlTest::RemoveFeature() const
{
    std::filesystem::remove(FeatureFile(bus_));
}

void KivctlTest::Forbid(const std::string& rules) const
{
    std::ofstream(bus_.Directory() / "policy.conf")
        << "<busconfig><policy context=\"mandatory\">" << rules << "</policy></busconfig>";
    bus_.ReloadConfig();
}

link::VariantOwner KivctlTest::Control(const char* method, GVariant* arguments) const
{
    const link::VariantOwner owned = link::Sink(arguments);
    const sandbox::Connection connection(bus_.Address());
    connection.CallDaemon("org.freedesktop.DBus", "StartServiceByName", g_variant_new("(su)", kServerName, 0U));
    link::ErrorOwner error;
    link::VariantOwner reply(g_dbus_connection_call_sync(
        connection.Get(), "org.lumra.tv.networkspeaker.simulator", "/org/lumra/tv/networkspeaker/simulator",
        "org.lumra.tv.networkspeaker.simulator.control", method, owned.get(), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
        nullptr, error.Out()));
    if (!reply) {
        throw std::runtime_error(error->message);
    }
    return reply;
}

void KivctlTest::SetFault(const std::string& method, const char* key, const std::string& value) const
{
    GVariantDict fault;
    g_variant_dict_init(&fault, nullptr);
    g_variant_dict_insert_value(&fault, key, g_variant_new_parsed(value.c_str()));
    Control("Fault", g_variant_new("(s@a{sv})", method.c_str(), g_variant_dict_end(&fault)));
}

void KivctlTest::Break(const std::string& method) const
{
    SetFault(method, "error", "'org.example.Broken'");
}

void KivctlTest::SetClientId(const std::string& id) const
{
    Control("ClientId", g_variant_new("(s)", id.c_str()));
}

void KivctlTest::SwitchAtmosOn() const
{
    Control("Atmos", g_variant_new("(b)", TRUE));
}

void KivctlTest::SendEvent(int id, const std::string& data) const
{
    Control("Event", g_variant_new("(si@ay)", "", id, Bytes(data)));
}

void KivctlTest::SendPayload(const std::string& payload) const
{
    Control("Payload", g_variant_new("(s@ay)", "", Bytes(payload)));
}

Json KivctlTest::State() const
{
    const link::VariantOwner reply = Control("Show");
    return Json::parse(g_variant_get_string(link::Member(reply.get()).get(), nullptr));
}

std::vector<std::string> KivctlTest::Calls() const
{
    const link::VariantOwner reply = Control("Calls");
    g_autoptr(GVariantIter) iterator = nullptr;
    g_variant_get(reply.get(), "(a(ussuv))", &iterator);
    std::vector<std::string> calls;
    const char* method = nullptr;
    GVariant* arguments = nullptr;
    while (g_variant_iter_loop(iterator, "(u&s&suv)", nullptr, nullptr, &method, nullptr, &arguments)) {
        if (std::string(method) != "check_dbus_connection") {
            // The simulator returns the string "()" for no arguments.
            const bool none = g_variant_is_of_type(arguments, G_VARIANT_TYPE_STRING) != FALSE;
            const link::TextOwner text(
                none ? g_variant_dup_string(arguments, nullptr) : g_variant_print(arguments, FALSE));
            calls.push_back(std::string(method) + text.get());
        }
    }
    return calls;
}

} // namespace kiv::ctl
