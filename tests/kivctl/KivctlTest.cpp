#include "KivctlTest.h"

#include <fstream>
#include <stdexcept>

namespace kiv::ctl {
namespace {

constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";

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

Running::Running(const sandbox::PrivateBus& bus, const Arguments& arguments)
{
    std::vector<const char*> argv = {KIV_CTL};
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);

    g_autoptr(GSubprocessLauncher) launcher = g_subprocess_launcher_new(
        static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_PIPE));
    g_subprocess_launcher_setenv(launcher, "DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), TRUE);
    g_subprocess_launcher_setenv(launcher, "KIV_SYSTEM_INFO_FILE", FeatureFile(bus).c_str(), TRUE);
    g_subprocess_launcher_setenv(launcher, "KIV_LOG_LEVEL", "none", TRUE);
    g_autoptr(GError) error = nullptr;
    process_ = g_subprocess_launcher_spawnv(launcher, argv.data(), &error);
    if (process_ == nullptr) {
        throw std::runtime_error(error->message);
    }
    out_ = g_data_input_stream_new(g_subprocess_get_stdout_pipe(process_));
    err_ = g_data_input_stream_new(g_subprocess_get_stderr_pipe(process_));
}

Running::~Running()
{
    g_subprocess_force_exit(process_);
    g_subprocess_wait(process_, nullptr, nullptr);
    g_object_unref(err_);
    g_object_unref(out_);
    g_object_unref(process_);
}

Ended Running::Wait()
{
    Ended ended{-1, ReadRest(out_), ReadRest(err_)};
    g_subprocess_wait(process_, nullptr, nullptr);
    if (g_subprocess_get_if_exited(process_)) {
        ended.exitCode = g_subprocess_get_exit_status(process_);
    }
    return ended;
}

std::string Running::ReadLine(GDataInputStream* stream)
{
    g_autofree char* line = g_data_input_stream_read_line(stream, nullptr, nullptr, nullptr);
    return line == nullptr ? "" : line;
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

KivctlTest::KivctlTest() : bus_({{{kServerName, {KIV_SIMULATOR}}}, ""})
{
    WriteFeature(bus_, "true");
}

Ended KivctlTest::Run(const Arguments& arguments) const
{
    return Running(bus_, arguments).Wait();
}

void KivctlTest::SwitchFeatureOff() const
{
    WriteFeature(bus_, "false");
}

GVariant* KivctlTest::Control(const char* method, GVariant* arguments) const
{
    g_autoptr(GVariant) owned = arguments == nullptr ? nullptr : g_variant_ref_sink(arguments);
    const sandbox::Connection connection(bus_.Address());
    connection.CallDaemon("org.freedesktop.DBus", "StartServiceByName", g_variant_new("(su)", kServerName, 0U));
    g_autoptr(GError) error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        connection.Get(), "org.lumra.tv.networkspeaker.simulator", "/org/lumra/tv/networkspeaker/simulator",
        "org.lumra.tv.networkspeaker.simulator.control", method, owned, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        &error);
    if (reply == nullptr) {
        throw std::runtime_error(error->message);
    }
    return reply;
}

void KivctlTest::SetFault(const char* method, const char* key, const char* value) const
{
    GVariantDict fault;
    g_variant_dict_init(&fault, nullptr);
    g_variant_dict_insert_value(&fault, key, g_variant_new_parsed(value));
    g_variant_unref(Control("SetFault", g_variant_new("(s@a{sv})", method, g_variant_dict_end(&fault))));
}

void KivctlTest::SendEvent(int id, const std::string& data) const
{
    g_variant_unref(Control("SendEvent", g_variant_new("(si@ay)", "", id, Bytes(data))));
}

void KivctlTest::SendPayload(const std::string& payload) const
{
    g_variant_unref(Control("SendPayload", g_variant_new("(s@ay)", "", Bytes(payload))));
}

std::vector<std::string> KivctlTest::Calls() const
{
    g_autoptr(GVariant) reply = Control("Calls", nullptr);
    g_autoptr(GVariantIter) iterator = nullptr;
    g_variant_get(reply, "(a(ussuv))", &iterator);
    std::vector<std::string> calls;
    const char* method = nullptr;
    GVariant* arguments = nullptr;
    while (g_variant_iter_loop(iterator, "(u&s&suv)", nullptr, nullptr, &method, nullptr, &arguments)) {
        if (std::string(method) != "check_dbus_connection") {
            g_autofree char* text = g_variant_print(arguments, FALSE);
            calls.push_back(std::string(method) + text);
        }
    }
    return calls;
}

} // namespace kiv::ctl
