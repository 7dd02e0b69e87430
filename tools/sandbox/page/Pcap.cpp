#include "tools/sandbox/page/Pcap.h"

#include "simulator/ClientNames.h"
#include "simulator/Glib.h"
#include "simulator/Interfaces.h"
#include "src/link/Owners.h"

#include <gio/gio.h>
#include <nlohmann/json.hpp>

#include <map>
#include <memory>
#include <utility>

namespace kiv::sandbox {

namespace {

using nlohmann::json;

constexpr std::uint32_t kMagic = 0xa1b2c3d4;
constexpr std::uint32_t kLinkTypeDBus = 231;
constexpr std::uint32_t kLongestMessage = 1U << 27U; // the limit of D-Bus

// Appends numbers in the byte order of this machine. A reader finds the order by the magic number.
void Put(std::string& file, std::initializer_list<std::uint32_t> numbers)
{
    for (const std::uint32_t number : numbers) {
        file.append(reinterpret_cast<const char*>(&number), sizeof number);
    }
}

using BusMessage = simulator::ObjectRef<GDBusMessage>;

class MessageWriter {
public:
    // Returns the bytes of the message on the bus. Returns nothing for a line that is not a message, or for a message
    // that no bus can carry.
    std::string Write(const json& line)
    {
        const bool isAnswer = line.contains("answer");
        const BusMessage message = isAnswer ? NewAnswer(line) : NewCall(line);
        if (!message) {
            return "";
        }
        const std::string tuple = line.value(isAnswer ? "values" : "arguments", "()");
        const link::VariantOwner body(g_variant_parse(nullptr, tuple.c_str(), nullptr, nullptr, nullptr));
        if (body != nullptr && g_variant_is_of_type(body.get(), G_VARIANT_TYPE_TUPLE) != FALSE &&
            g_variant_n_children(body.get()) != 0) {
            g_dbus_message_set_body(message.get(), body.get());
        }
        if (line.contains("sender")) {
            g_dbus_message_set_sender(message.get(), line.value("sender", "").c_str());
        }
        g_dbus_message_set_serial(message.get(), line.value("serial", ++serial_));
        gsize size = 0;
        const std::unique_ptr<guchar, link::Releaser<g_free>> bytes(
            g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
        return {reinterpret_cast<const char*>(bytes.get()), size};
    }

private:
    BusMessage NewCall(const json& line)
    {
        const bool isEvent = line.contains("event");
        const std::string method = line.value("method", "");
        const std::string client = line.value("client", "");
        std::string callee = simulator::kServerName;
        std::string path = simulator::kServerPath;
        std::string interface = simulator::kServerInterface;
        if (isEvent) {
            simulator::ClientNames names(client);
            callee = std::move(names.name);
            path = std::move(names.path);
            interface = std::move(names.interface);
        } else if (method == "NameHasOwner") {
            callee = interface = simulator::kBusName;
            path = simulator::kBusPath;
        }
        if (g_dbus_is_member_name(method.c_str()) == FALSE || g_dbus_is_interface_name(interface.c_str()) == FALSE ||
            g_variant_is_object_path(path.c_str()) == FALSE) {
            return nullptr;
        }
        BusMessage call = simulator::OwnObject(
            g_dbus_message_new_method_call(callee.c_str(), path.c_str(), interface.c_str(), method.c_str()));
        g_dbus_message_set_sender(call.get(), isEvent ? simulator::kServerName : ":1.1000");
        calls_[line.at(isEvent ? "event" : "call").get<std::int64_t>()] = call;
        return call;
    }

    BusMessage NewAnswer(const json& line)
    {
        const auto found = calls_.extract(line.at("answer").get<std::int64_t>());
        if (!found) {
            return nullptr;
        }
        GDBusMessage* const call = found.mapped().get();
        BusMessage answer;
        if (const std::string error = line.value("error", ""); error.empty()) {
            answer = simulator::OwnObject(g_dbus_message_new_method_reply(call));
        } else {
            const bool isName = g_dbus_is_interface_name(error.c_str()) != FALSE;
            answer = simulator::OwnObject(g_dbus_message_new_method_error_literal(
                call, isName ? error.c_str() : "org.freedesktop.DBus.Error.Failed", line.value("message", "").c_str()));
        }
        g_dbus_message_set_sender(answer.get(), g_dbus_message_get_destination(call));
        return answer;
    }

    std::uint32_t serial_ = 0;
    std::map<std::int64_t, BusMessage> calls_; // without an answer so far
};

} // namespace

std::string WritePcap(const History& history, std::int64_t beginMicroseconds)
{
    std::string file;
    Put(file, {kMagic, 2U | 4U << 16U, 0, 0, kLongestMessage, kLinkTypeDBus});
    MessageWriter writer;
    for (std::uint64_t number = history.First(); number != history.End(); ++number) {
        const json line = json::parse(history.At(number));
        if (const std::string message = line.contains("log") ? "" : writer.Write(line); !message.empty()) {
            const std::int64_t time = beginMicroseconds + line.value("us", line.value("ms", std::int64_t{0}) * 1000);
            const auto size = static_cast<std::uint32_t>(message.size());
            Put(file, {static_cast<std::uint32_t>(time / 1'000'000), static_cast<std::uint32_t>(time % 1'000'000), size,
                       size});
            file += message;
        }
    }
    return file;
}

} // namespace kiv::sandbox
