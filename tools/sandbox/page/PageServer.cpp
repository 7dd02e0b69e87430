#include "tools/sandbox/page/PageServer.h"

#include "simulator/Glib.h"
#include "tools/sandbox/page/Assets.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace kiv::sandbox {

namespace {

using nlohmann::json;

constexpr std::size_t kChunk = 64UL << 10U;
constexpr goffset kLongestBody = 64L << 10U;
constexpr guint kHeartbeatSeconds = 1;

constexpr std::array<std::pair<const char*, const char*>, 6> kHeaders = {
    {{"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
                                 "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
     {"X-Content-Type-Options", "nosniff"},
     {"Referrer-Policy", "no-referrer"},
     {"Cross-Origin-Resource-Policy", "same-origin"},
     {"Cache-Control", "no-store"},
     // libsoup 3.2 never closes a connection of HTTP/1.1 that its client closes between two requests.
     {"Connection", "close"}}};

std::string NewToken()
{
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("the system gave no random numbers for the page's token");
    }
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::string Header(SoupServerMessage* message, const char* name)
{
    const char* const value = soup_message_headers_get_one(soup_server_message_get_request_headers(message), name);
    return value == nullptr ? "" : value;
}

void Respond(SoupServerMessage* message, const char* type, std::string_view text)
{
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    soup_server_message_set_response(message, type, SOUP_MEMORY_COPY, text.data(), text.size());
}

} // namespace

PageServer::PageServer(History& history, Actions actions)
    : history_(history), actions_(std::move(actions)), token_(NewToken()), root_("/" + token_ + "/"),
      server_(soup_server_new(nullptr, nullptr))
{
    link::ErrorOwner error;
    if (soup_server_listen_local(server_.get(), 0, SOUP_SERVER_LISTEN_IPV4_ONLY, error.Out()) == FALSE) {
        throw std::runtime_error(fmt::format("the page cannot be served: {}", error->message));
    }
    GSList* const uris = soup_server_get_uris(server_.get());
    host_ = fmt::format("127.0.0.1:{}", g_uri_get_port(static_cast<GUri*>(uris->data)));
    g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
    soup_server_add_early_handler(server_.get(), nullptr, &OnHeaders, this, nullptr);
    soup_server_add_handler(server_.get(), nullptr, &OnRequest, this, nullptr);
    history_.OnNews([this] { TellLater(); });
    // Only a failed write shows that a viewer has gone.
    const auto beat = [](void* self) -> gboolean {
        static_cast<PageServer*>(self)->TellAll(":\n\n");
        return G_SOURCE_CONTINUE;
    };
    g_timeout_add_seconds(kHeartbeatSeconds, beat, this);
}

// Runs before the body of a request is read.
void PageServer::OnHeaders(SoupServer*, Message* message, const char* path, GHashTable*, void* self)
{
    for (const auto& [name, value] : kHeaders) {
        soup_message_headers_append(soup_server_message_get_response_headers(message), name, value);
    }
    if (const guint refusal = static_cast<PageServer*>(self)->Refusal(message, path)) {
        soup_message_body_set_accumulate(soup_server_message_get_request_body(message), FALSE);
        soup_server_message_set_status(message, refusal, nullptr);
    }
}

// Returns the status of the refusal, or 0 if the request is accepted.
guint PageServer::Refusal(Message* message, const std::string& path) const
{
    const std::string method = soup_server_message_get_method(message);
    const std::string origin = Header(message, "Origin");
    const bool isPost = method == SOUP_METHOD_POST;
    // Another page can make its host name resolve to the loopback. Its requests have that name as their Host.
    if (Header(message, "Host") != host_ || (!origin.empty() && origin != "http://" + host_) ||
        (isPost && origin.empty())) {
        return SOUP_STATUS_FORBIDDEN;
    }
    if (!path.starts_with(root_)) {
        return SOUP_STATUS_NOT_FOUND;
    }
    if (!isPost && method != SOUP_METHOD_GET) {
        return SOUP_STATUS_METHOD_NOT_ALLOWED;
    }
    SoupMessageHeaders* const headers = soup_server_message_get_request_headers(message);
    const SoupEncoding encoding = soup_message_headers_get_encoding(headers);
    const bool isLimited =
        encoding == SOUP_ENCODING_NONE ||
        (encoding == SOUP_ENCODING_CONTENT_LENGTH && soup_message_headers_get_content_length(headers) <= kLongestBody);
    return isLimited ? 0 : SOUP_STATUS_REQUEST_ENTITY_TOO_LARGE;
}

void PageServer::OnRequest(SoupServer*, Message* message, const char* path, GHashTable*, void* self)
{
    auto* const server = static_cast<PageServer*>(self);
    if (soup_server_message_get_status(message) == 0) {
        server->Serve(message, std::string(path).substr(server->root_.size()));
    }
}

void PageServer::Serve(Message* message, const std::string& page)
{
    const bool isPost = soup_server_message_get_method(message) == SOUP_METHOD_POST;
    const auto* const asset = std::ranges::find(kAssets, page, &Asset::path);
    if (isPost && page == "control" && actions_.control) {
        Control(message);
    } else if (!isPost && asset != kAssets.end()) {
        Respond(message, asset->type, asset->text);
    } else if (!isPost && page == "messages.pcap") {
        Respond(message, "application/vnd.tcpdump.pcap", actions_.writePcap());
    } else if (!isPost && page == "events") {
        AddViewer(message);
    } else {
        soup_server_message_set_status(message, SOUP_STATUS_NOT_FOUND, nullptr);
    }
}

void PageServer::Control(Message* message) const
{
    SoupMessageBody* const body = soup_server_message_get_request_body(message);
    const json words = json::parse(body->data, body->data + body->length, nullptr, false);
    if (!words.is_array() || !std::ranges::all_of(words, &json::is_string)) {
        soup_server_message_set_status(message, SOUP_STATUS_BAD_REQUEST, nullptr);
        return;
    }
    soup_server_message_pause(message);
    const auto held = simulator::OwnObject(static_cast<Message*>(g_object_ref(message)));
    actions_.control(words, [held](int exitCode, const std::string& output) {
        const json answer = {{"exitCode", exitCode}, {"output", output}};
        Respond(held.get(), "application/json", answer.dump(-1, ' ', false, json::error_handler_t::replace));
        soup_server_message_unpause(held.get());
    });
}

void PageServer::AddViewer(Message* message)
{
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    SoupMessageHeaders* const headers = soup_server_message_get_response_headers(message);
    soup_message_headers_set_encoding(headers, SOUP_ENCODING_CHUNKED);
    soup_message_headers_set_content_type(headers, "text/event-stream", nullptr);
    soup_message_body_set_accumulate(soup_server_message_get_response_body(message), FALSE);
    // A browser that connects again sends the number of its last line.
    const std::string last = Header(message, "Last-Event-ID");
    std::uint64_t number = 0;
    const bool comesBack = std::from_chars(last.data(), last.data() + last.size(), number).ec == std::errc{};
    viewers_[message] = {.next = comesBack ? std::min(number + 1, history_.End()) : history_.First()};
    const auto onWritten = [](Message* written, PageServer* self) {
        Viewer& viewer = self->viewers_.at(written);
        viewer.isWriting = false;
        self->Tell(written, viewer);
    };
    const auto onFinished = [](Message* gone, PageServer* self) { self->viewers_.erase(gone); };
    g_signal_connect(message, "wrote-chunk", G_CALLBACK(+onWritten), this);
    g_signal_connect(message, "finished", G_CALLBACK(+onFinished), this);
    Tell(message, viewers_.at(message));
}

// Tells the viewers in the next turn of the main loop, so that the lines of this turn make one chunk.
void PageServer::TellLater()
{
    if (!std::exchange(willTell_, true)) {
        simulator::After({}, [this] {
            willTell_ = false;
            TellAll("");
        });
    }
}

void PageServer::TellAll(const char* first)
{
    for (auto& [message, viewer] : viewers_) {
        Tell(message, viewer, first);
    }
}

void PageServer::Tell(Message* message, Viewer& viewer, std::string chunk)
{
    if (viewer.isWriting) {
        return;
    }
    for (const auto& [name, state] : history_.States()) {
        if (state.version > viewer.version) {
            chunk += fmt::format("data: {}\n\n", state.line);
        }
    }
    viewer.version = history_.Version();
    if (viewer.next < history_.First()) {
        chunk += fmt::format("data: {{\"missed\":{}}}\n\n", history_.First() - viewer.next);
        viewer.next = history_.First();
    }
    for (; viewer.next != history_.End() && chunk.size() < kChunk; ++viewer.next) {
        chunk += fmt::format("id: {}\ndata: {}\n\n", viewer.next, history_.At(viewer.next));
    }
    if (!chunk.empty()) {
        viewer.isWriting = true;
        soup_message_body_append(
            soup_server_message_get_response_body(message), SOUP_MEMORY_COPY, chunk.data(), chunk.size());
        soup_server_message_unpause(message);
    }
}

} // namespace kiv::sandbox
