#include "page/Pcap.h"

#include "simulator/Interfaces.h"

#include <fmt/format.h>
#include <gio/gio.h>
#include <nlohmann/json.hpp>

#include <map>
#include <memory>

namespace kiv::sandbox {

namespace {

using nlohmann::json;

constexpr auto kDaemon = "org.freedesktop.DBus";
constexpr auto kServerInterface = "org.lumra.tv.networkspeaker.server.interface";

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

struct Caller {
    std::string name;
    std::string callee;
    std::uint32_t serial;
};

class MessageWriter {
public:
    // Returns the bytes of the message on the bus. Returns nothing for a line that is not a message, or for a message
    // that no bus can carry.
    std::string Write(const json& line)
    {
        const std::unique_ptr<GDBusMessage, decltype(&g_object_unref)> message(g_dbus_message_new(), g_object_unref);
        if (line.contains("answer") ? !SetAnswer(message.get(), line) : !SetCall(message.get(), line)) {
            return "";
        }
        gsize size = 0;
        const std::unique_ptr<guchar, decltype(&g_free)> bytes(
            g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr), g_free);
        return {reinterpret_cast<const char*>(bytes.get()), size};
    }

private:
    bool SetCall(GDBusMessage* message, const json& line)
    {
        const bool isEvent = line.contains("event");
        const std::string method = line.value("method", "");
        const std::string client = line.value("client", "");
        std::string callee = simulator::kServerName;
        std::string path = simulator::kServerPath;
        std::string interface = kServerInterface;
        if (isEvent) {
            callee = "org.lumra.tv.networkspeaker.client." + client;
            path = "/org/lumra/tv/networkspeaker/client/" + client;
            interface = "org.lumra.tv.networkspeaker.client.interface." + client;
        } else if (method == "NameHasOwner") {
            callee = interface = kDaemon;
            path = "/org/freedesktop/DBus";
        }
        if (g_dbus_is_member_name(method.c_str()) == FALSE || g_dbus_is_interface_name(interface.c_str()) == FALSE) {
            return false;
        }
        const std::string sender = line.value("sender", isEvent ? simulator::kServerName : ":1.1000");
        const std::uint32_t serial = line.value("serial", ++serial_);
        g_dbus_message_set_message_type(message, G_DBUS_MESSAGE_TYPE_METHOD_CALL);
        g_dbus_message_set_destination(message, callee.c_str());
        g_dbus_message_set_path(message, path.c_str());
        g_dbus_message_set_interface(message, interface.c_str());
        g_dbus_message_set_member(message, method.c_str());
        callers_[line.at(isEvent ? "event" : "call").get<std::int64_t>()] = {sender, callee, serial};
        Complete(message, sender, serial, Parse(line.value("arguments", "()")));
        return true;
    }

    bool SetAnswer(GDBusMessage* message, const json& line)
    {
        const auto found = callers_.extract(line.at("answer").get<std::int64_t>());
        if (!found) {
            return false;
        }
        const Caller& caller = found.mapped();
        const std::string error = line.value("error", "");
        GVariant* body = nullptr;
        if (error.empty()) {
            g_dbus_message_set_message_type(message, G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
            body = Parse(line.value("values", "()"));
        } else {
            const bool isName = g_dbus_is_interface_name(error.c_str()) != FALSE;
            g_dbus_message_set_message_type(message, G_DBUS_MESSAGE_TYPE_ERROR);
            g_dbus_message_set_error_name(message, isName ? error.c_str() : "org.freedesktop.DBus.Error.Failed");
            body = g_variant_new("(s)", line.value("message", "").c_str());
        }
        g_dbus_message_set_flags(message, G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
        g_dbus_message_set_reply_serial(message, caller.serial);
        g_dbus_message_set_destination(message, caller.name.c_str());
        Complete(message, line.value("sender", caller.callee), line.value("serial", ++serial_), body);
        return true;
    }

    static GVariant* Parse(const std::string& tuple)
    {
        return g_variant_parse(nullptr, tuple.c_str(), nullptr, nullptr, nullptr);
    }

    static void Complete(GDBusMessage* message, const std::string& sender, std::uint32_t serial, GVariant* body)
    {
        g_dbus_message_set_sender(message, sender.c_str());
        g_dbus_message_set_serial(message, serial);
        if (body != nullptr) {
            g_variant_take_ref(body);
            g_dbus_message_set_body(message, g_variant_n_children(body) == 0 ? nullptr : body);
            g_variant_unref(body);
        }
    }

    std::uint32_t serial_ = 0;
    std::map<std::int64_t, Caller> callers_; // of the calls without an answer
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
