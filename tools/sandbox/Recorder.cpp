#include "Recorder.h"

#include "simulator/JsonNode.h"
#include "simulator/Recording.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace kiv::sandbox {

namespace {

constexpr std::string_view kServerInterface = "org.lumra.tv.networkspeaker.server.interface";
constexpr std::string_view kClientInterface = "org.lumra.tv.networkspeaker.client.interface.";

/// With types, so that it can be read back as the same.
std::string BodyWithTypes(const Message& message)
{
    if (!message.body) {
        return "()";
    }
    char* text = g_variant_print(message.body.get(), TRUE);
    std::string copy = text;
    g_free(text);
    return copy;
}

/// The text of an error is its first value.
std::string ErrorText(const Message& message)
{
    if (!message.body || !message.signature.starts_with('s')) {
        return "";
    }
    const char* text = nullptr;
    g_variant_get_child(message.body.get(), 0, "&s", &text);
    return text;
}

} // namespace

Recorder::Recorder(const std::string& file) : name_(file), file_(file)
{
    if (!file_) {
        throw simulator::FileError(fmt::format("{}: {}", file, std::strerror(errno)));
    }
}

void Recorder::Add(const Message& message)
{
    simulator::RecordedLine line;
    if (IsAnswer(message)) {
        line.answer = open_.Take(message);
        if (!line.answer) {
            return;
        }
        line.error = message.errorName;
        (line.error.empty() ? line.values : line.message) =
            line.error.empty() ? BodyWithTypes(message) : ErrorText(message);
        Write(line);
        return;
    }
    const bool isEvent = message.interface.starts_with(kClientInterface);
    if (message.type != G_DBUS_MESSAGE_TYPE_METHOD_CALL || (!isEvent && message.interface != kServerInterface)) {
        return;
    }
    (isEvent ? line.event : line.call) = ++lastNumber_;
    line.client = isEvent ? message.interface.substr(kClientInterface.size()) : "";
    line.method = message.member;
    line.arguments = BodyWithTypes(message);
    open_.Add(message, lastNumber_);
    Write(line);
}

void Recorder::Write(simulator::RecordedLine line)
{
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    line.ms = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
    // At once: what there is stays, whatever ends the sandbox.
    file_ << simulator::WriteLine(line) << std::endl;
}

void Recorder::Finish()
{
    file_.close();
    if (!file_) {
        throw std::runtime_error(fmt::format("{}: cannot be written", name_));
    }
}

} // namespace kiv::sandbox
