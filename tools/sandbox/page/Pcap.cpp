#include "page/Pcap.h"

#include "page/Peers.h"
#include "simulator/Interfaces.h"

#include <fmt/format.h>
#include <gio/gio.h>
#include <nlohmann/json.hpp>

#include <map>
#include <memory>
#include <optional>

namespace kiv::sandbox {

namespace {

using nlohmann::json;
using MessagePointer = std::unique_ptr<GDBusMessage, decltype(&g_object_unref)>;

constexpr std::uint32_t kMagic = 0xa1b2c3d4;
constexpr std::uint32_t kLinkTypeDBus = 231;
constexpr std::uint32_t kLongestMessage = 1U << 27U; // as D-Bus has it

/// Appends numbers in the byte order of this machine, which the magic number tells.
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
    /// Returns nothing for a line that is not a message.
    std::optional<std::string> Write(const json& line)
    {
        const MessagePointer message(line.contains("answer") ? Answer(line) : Call(line), g_object_unref);
        if (!message) {
            return std::nullopt;
        }
        gsize size = 0;
        const std::unique_ptr<guchar, decltype(&g_free)> bytes(
            g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr), g_free);
        if (!bytes) {
            return std::nullopt;
        }
        return std::string(reinterpret_cast<const char*>(bytes.get()), size);
    }

private:
    GDBusMessage* Call(const json& line)
    {
        const std::string method = line.value("method", "");
        if (g_dbus_is_member_name(method.c_str()) == FALSE) {
            return nullptr;
        }
        GDBusMessage* message = nullptr;
        const std::string client = line.value("client", "");
        std::string sender = line.value("sender", ":1.1000");
        std::int64_t number = 0;
        if (line.contains("call")) {
            number = line.at("call");
            message = g_dbus_message_new_method_call(
                simulator::kServerName, simulator::kServerPath, kServerInterface.data(), method.c_str());
        } else if (line.contains("bus")) {
            number = line.at("bus");
            message = g_dbus_message_new_method_call(
                kDaemonName.data(), "/org/freedesktop/DBus", kDaemonName.data(), method.c_str());
        } else if (
            line.contains("event") && g_dbus_is_interface_name(fmt::format("{}{}", kClientInterface, client).c_str())) {
            number = line.at("event");
            sender = line.value("sender", simulator::kServerName);
            message = g_dbus_message_new_method_call(
                fmt::format("{}{}", kClientName, client).c_str(), fmt::format("{}{}", kClientPath, client).c_str(),
                fmt::format("{}{}", kClientInterface, client).c_str(), method.c_str());
        } else {
            return nullptr;
        }
        const std::uint32_t serial = line.value("serial", ++serial_);
        callers_[number] = {sender, g_dbus_message_get_destination(message), serial};
        Complete(message, sender, serial, line.value("arguments", "()"));
        return message;
    }

    GDBusMessage* Answer(const json& line)
    {
        const auto caller = callers_.extract(line.at("answer").get<std::int64_t>());
        if (!caller) {
            return nullptr;
        }
        GDBusMessage* const message = g_dbus_message_new();
        std::string error = line.value("error", "");
        if (!error.empty() && g_dbus_is_interface_name(error.c_str()) == FALSE) {
            error = "org.freedesktop.DBus.Error.Failed";
        }
        g_dbus_message_set_message_type(
            message, error.empty() ? G_DBUS_MESSAGE_TYPE_METHOD_RETURN : G_DBUS_MESSAGE_TYPE_ERROR);
        g_dbus_message_set_flags(message, G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
        g_dbus_message_set_reply_serial(message, caller.mapped().serial);
        g_dbus_message_set_destination(message, caller.mapped().name.c_str());
        std::string values = line.value("values", "()");
        if (!error.empty()) {
            g_dbus_message_set_error_name(message, error.c_str());
            const std::unique_ptr<GVariant, decltype(&g_variant_unref)> text(
                g_variant_ref_sink(g_variant_new("(s)", line.value("message", "").c_str())), g_variant_unref);
            const std::unique_ptr<char, decltype(&g_free)> printed(g_variant_print(text.get(), TRUE), g_free);
            values = printed.get();
        }
        Complete(message, line.value("sender", caller.mapped().callee), line.value("serial", ++serial_), values);
        return message;
    }

    static void
    Complete(GDBusMessage* message, const std::string& sender, std::uint32_t serial, const std::string& body)
    {
        g_dbus_message_set_sender(message, sender.c_str());
        g_dbus_message_set_serial(message, serial);
        GVariant* const values = g_variant_parse(nullptr, body.c_str(), nullptr, nullptr, nullptr);
        if (values != nullptr && g_variant_n_children(values) != 0) {
            g_dbus_message_set_body(message, values);
        }
        if (values != nullptr) {
            g_variant_unref(values);
        }
    }

    std::uint32_t serial_ = 0;
    std::map<std::int64_t, Caller> callers_; // whose calls have no answer yet
};

} // namespace

std::string WritePcap(const History& history, std::int64_t beginMicroseconds)
{
    std::string file;
    Put(file, {kMagic, 2U | 4U << 16U, 0, 0, kLongestMessage, kLinkTypeDBus});
    MessageWriter writer;
    for (std::uint64_t number = history.First(); number != history.End(); ++number) {
        const json line = json::parse(history.At(number));
        if (const auto message = writer.Write(line)) {
            const std::int64_t time = beginMicroseconds + line.value("us", line.value("ms", std::int64_t{0}) * 1000);
            const auto size = static_cast<std::uint32_t>(message->size());
            Put(file, {static_cast<std::uint32_t>(time / 1'000'000), static_cast<std::uint32_t>(time % 1'000'000), size,
                       size});
            file += *message;
        }
    }
    return file;
}

} // namespace kiv::sandbox
