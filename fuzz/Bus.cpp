#include "fuzz/Bus.h"

#include "fuzz/Target.h"
#include "src/link/ClientEndpoint.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

namespace kiv::fuzz {

namespace {

using link::Sink;

// Indexed by Question. Null means the ordinary answer.
std::array<const Answer*, 3> g_answers;

Answer Ordinary(Question question)
{
    switch (question) {
    case Question::kOwner:
        return {Sink(g_variant_new("(b)", TRUE)), {}};
    case Question::kClientId:
        return {Sink(g_variant_new("(s)", kOrdinaryId)), {}};
    case Question::kRequest:
        break;
    }
    return {Sink(g_variant_new("()")), {}};
}

const Answer& AnswerTo(Question question)
{
    static const std::array ordinary = {
        Ordinary(Question::kOwner), Ordinary(Question::kClientId), Ordinary(Question::kRequest)};
    const auto index = static_cast<std::size_t>(question);
    return g_answers.at(index) != nullptr ? *g_answers.at(index) : ordinary.at(index);
}

// Returns the body, or sets the error.
GVariant* Give(const Answer& answer, GError** error)
{
    if (!answer.body) {
        g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_DBUS_ERROR, answer.error.c_str());
        return nullptr;
    }
    return g_variant_ref(answer.body.get());
}

// Returns a connection that is never opened. That is enough, because the targets do not test closed connections.
GDBusConnection* Connection()
{
    static auto* const connection = static_cast<GDBusConnection*>(g_object_new(G_TYPE_DBUS_CONNECTION, nullptr));
    return connection;
}

// The bus allows containers this deep. The targets allow no more in total, because that is simpler to count.
constexpr std::ptrdiff_t kMaxContainers = 64;

bool IsSignature(const std::string& text)
{
    const auto opensContainer = [](char c) { return c == 'a' || c == '(' || c == '{'; };
    return g_variant_is_signature(text.c_str()) != FALSE &&
           std::ranges::count_if(text, opensContainer) <= kMaxContainers;
}

} // namespace

Answer ReadAnswer(Input& input)
{
    const std::string signature = input.Text();
    if (signature == "!") {
        return {nullptr, input.Utf8()};
    }
    const std::string type = "(" + (IsSignature(signature) ? signature : "ay") + ")";
    const Bytes rest = input.Rest();
    const link::BytesOwner bytes(g_bytes_new(rest.data(), rest.size()));
    return {Sink(g_variant_new_from_bytes(G_VARIANT_TYPE(type.c_str()), bytes.get(), FALSE)), {}};
}

Answering::Answering(Question question, const Answer& answer) : question_(question)
{
    g_answers.at(static_cast<std::size_t>(question_)) = &answer;
}

Answering::~Answering()
{
    g_answers.at(static_cast<std::size_t>(question_)) = nullptr;
}

CNSGdbus& Client()
{
    return *CNSGdbus::m_pInstance;
}

void Connect()
{
    KIV_REQUIRE(Client().GetProxy(link::kClientXml, link::kClientVTable, false, false));
}

unsigned ConnectionReferences()
{
    return G_OBJECT(Connection())->ref_count;
}

} // namespace kiv::fuzz

using namespace kiv::fuzz;

extern "C" {

// The linker puts these functions in place of GIO's and the C library's (--wrap).

GDBusConnection* __wrap_g_bus_get_sync(GBusType /*type*/, GCancellable* /*cancellable*/, GError** /*error*/)
{
    return static_cast<GDBusConnection*>(g_object_ref(Connection()));
}

GVariant* __wrap_g_dbus_connection_call_sync(
    GDBusConnection* connection, const gchar* /*name*/, const gchar* /*path*/, const gchar* /*interface*/,
    const gchar* method, GVariant* input, const GVariantType* /*replyType*/, GDBusCallFlags /*flags*/, gint /*timeout*/,
    GCancellable* /*cancellable*/, GError** error)
{
    KIV_REQUIRE(connection == Connection());
    KIV_REQUIRE(input == nullptr || g_variant_is_of_type(input, G_VARIANT_TYPE_TUPLE));
    const bool isForId = std::string_view(method) == "check_dbus_connection";
    return Give(AnswerTo(isForId ? Question::kClientId : Question::kRequest), error);
}

GDBusMessage* __wrap_g_dbus_connection_send_message_with_reply_sync(
    GDBusConnection* connection, GDBusMessage* /*message*/, GDBusSendMessageFlags /*flags*/, gint /*timeout*/,
    guint32* /*serial*/, GCancellable* /*cancellable*/, GError** error)
{
    KIV_REQUIRE(connection == Connection());
    const kiv::link::VariantOwner body(Give(AnswerTo(Question::kOwner), error));
    if (!body) {
        return nullptr;
    }
    GDBusMessage* reply = g_dbus_message_new();
    g_dbus_message_set_body(reply, body.get());
    return reply;
}

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument)
{
    return body == CNSGdbus::m_Monitor ? EAGAIN : __real_pthread_create(thread, attributes, body, argument);
}
}
