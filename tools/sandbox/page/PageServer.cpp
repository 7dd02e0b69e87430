#include "page/PageServer.h"

#include "page/Assets.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace kiv::sandbox {

namespace {

constexpr std::size_t kChunk = 64UL << 10U;
constexpr goffset kLongestBody = 64L << 10U;
constexpr std::size_t kMostViewers = 64;
constexpr int kMostCommands = 8;
constexpr guint kHeartbeatSeconds = 5;

constexpr auto kPolicy = "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
                         "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

std::string NewToken()
{
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("no random numbers for the page's token");
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
      server_(soup_server_new(nullptr, nullptr), g_object_unref)
{
    GError* error = nullptr;
    if (soup_server_listen_local(server_.get(), 0, SOUP_SERVER_LISTEN_IPV4_ONLY, &error) == FALSE) {
        const std::string reason = error->message;
        g_error_free(error);
        throw std::runtime_error(fmt::format("the page cannot be served: {}", reason));
    }
    GSList* const uris = soup_server_get_uris(server_.get());
    host_ = fmt::format("127.0.0.1:{}", g_uri_get_port(static_cast<GUri*>(uris->data)));
    g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
    soup_server_add_early_handler(server_.get(), nullptr, &OnHeaders, this, nullptr);
    soup_server_add_handler(server_.get(), nullptr, &OnRequest, this, nullptr);
    history_.OnNews([this] { TellLater(); });
    heartbeat_ = g_timeout_add_seconds(kHeartbeatSeconds, &OnHeartbeat, this);
}

PageServer::~PageServer()
{
    g_source_remove(heartbeat_);
    if (telling_ != 0) {
        g_source_remove(telling_);
    }
    history_.OnNews([] {});
    for (const auto& [message, viewer] : viewers_) {
        g_signal_handlers_disconnect_by_data(message, this);
    }
}

/// Runs before anything of a request's body is read.
void PageServer::OnHeaders(SoupServer*, Message* message, const char* path, GHashTable*, void* self)
{
    SoupMessageHeaders* const headers = soup_server_message_get_response_headers(message);
    soup_message_headers_append(headers, "Content-Security-Policy", kPolicy);
    soup_message_headers_append(headers, "X-Content-Type-Options", "nosniff");
    soup_message_headers_append(headers, "Referrer-Policy", "no-referrer");
    soup_message_headers_append(headers, "Cross-Origin-Resource-Policy", "same-origin");
    soup_message_headers_append(headers, "Cache-Control", "no-store");
    if (const guint refusal = static_cast<PageServer*>(self)->Refusal(message, path)) {
        soup_message_headers_append(headers, "Connection", "close");
        soup_message_body_set_accumulate(soup_server_message_get_request_body(message), FALSE);
        soup_server_message_set_status(message, refusal, nullptr);
    }
}

/// Returns the status with which the request is refused; 0 if it is not.
guint PageServer::Refusal(Message* message, const std::string& path) const
{
    const std::string method = soup_server_message_get_method(message);
    const std::string origin = Header(message, "Origin");
    const bool isPost = method == SOUP_METHOD_POST;
    // A name that another page has had resolve to the loopback is not this host.
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
    const bool hasBody = soup_message_headers_get_encoding(headers) != SOUP_ENCODING_NONE;
    if (hasBody && (soup_message_headers_get_encoding(headers) != SOUP_ENCODING_CONTENT_LENGTH ||
                    soup_message_headers_get_content_length(headers) > kLongestBody)) {
        return SOUP_STATUS_REQUEST_ENTITY_TOO_LARGE;
    }
    return 0;
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
    if (soup_server_message_get_method(message) == SOUP_METHOD_POST) {
        if (page == "control" && actions_.control) {
            Control(message);
        } else {
            soup_server_message_set_status(message, SOUP_STATUS_NOT_FOUND, nullptr);
        }
    } else if (page.empty()) {
        Respond(message, "text/html; charset=utf-8", kPageHtml);
    } else if (page == "page.css") {
        Respond(message, "text/css; charset=utf-8", kPageCss);
    } else if (page == "page.js") {
        Respond(message, "text/javascript; charset=utf-8", kPageJs);
    } else if (page == "messages.pcap") {
        Respond(message, "application/vnd.tcpdump.pcap", actions_.writePcap());
    } else if (page == "events") {
        AddViewer(message);
    } else {
        soup_server_message_set_status(message, SOUP_STATUS_NOT_FOUND, nullptr);
    }
}

void PageServer::Control(Message* message)
{
    SoupMessageBody* const body = soup_server_message_get_request_body(message);
    const auto words = nlohmann::json::parse(body->data, body->data + body->length, nullptr, false);
    const bool areWords =
        words.is_array() && std::ranges::all_of(words, [](const auto& word) { return word.is_string(); });
    if (!areWords || running_ == kMostCommands) {
        soup_server_message_set_status(
            message, areWords ? SOUP_STATUS_SERVICE_UNAVAILABLE : SOUP_STATUS_BAD_REQUEST, nullptr);
        return;
    }
    ++running_;
    g_object_ref(message);
    soup_server_message_pause(message);
    actions_.control(words, [this, message](const Outcome& outcome) {
        --running_;
        const nlohmann::json answer = {{"exitCode", outcome.exitCode}, {"output", outcome.output}};
        Respond(message, "application/json", answer.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
        soup_server_message_unpause(message);
        g_object_unref(message);
    });
}

void PageServer::AddViewer(Message* message)
{
    if (viewers_.size() == kMostViewers) {
        soup_server_message_set_status(message, SOUP_STATUS_SERVICE_UNAVAILABLE, nullptr);
        return;
    }
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    SoupMessageHeaders* const headers = soup_server_message_get_response_headers(message);
    soup_message_headers_set_encoding(headers, SOUP_ENCODING_CHUNKED);
    soup_message_headers_set_content_type(headers, "text/event-stream", nullptr);
    soup_message_body_set_accumulate(soup_server_message_get_response_body(message), FALSE);
    // A browser that comes back tells which line it had last.
    const std::string last = Header(message, "Last-Event-ID");
    std::uint64_t number = 0;
    const bool comesBack = std::from_chars(last.data(), last.data() + last.size(), number).ec == std::errc{};
    viewers_[message] = {.next = comesBack ? std::min(number + 1, history_.End()) : history_.First()};
    g_signal_connect(
        message, "wrote-chunk", G_CALLBACK(+[](Message* written, void* self) {
            auto* const server = static_cast<PageServer*>(self);
            if (const auto found = server->viewers_.find(written); found != server->viewers_.end()) {
                found->second.isWriting = false;
                server->Tell(written, found->second);
            }
        }),
        this);
    g_signal_connect(
        message, "finished",
        G_CALLBACK(+[](Message* gone, void* self) { static_cast<PageServer*>(self)->viewers_.erase(gone); }), this);
    Tell(message, viewers_.at(message));
}

/// Waits for what else is to be done now, so that many lines make one chunk.
void PageServer::TellLater()
{
    if (telling_ != 0 || viewers_.empty()) {
        return;
    }
    telling_ = g_idle_add(
        [](void* self) -> gboolean {
            auto* const server = static_cast<PageServer*>(self);
            server->telling_ = 0;
            for (auto& [message, viewer] : server->viewers_) {
                server->Tell(message, viewer);
            }
            return G_SOURCE_REMOVE;
        },
        this);
}

void PageServer::Tell(Message* message, Viewer& viewer)
{
    if (viewer.isWriting) {
        return;
    }
    std::string chunk;
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
    while (viewer.next != history_.End() && chunk.size() < kChunk) {
        chunk += fmt::format("id: {}\ndata: {}\n\n", viewer.next, history_.At(viewer.next));
        ++viewer.next;
    }
    if (!chunk.empty()) {
        viewer.isWriting = true;
        soup_message_body_append(
            soup_server_message_get_response_body(message), SOUP_MEMORY_COPY, chunk.data(), chunk.size());
        soup_server_message_unpause(message);
    }
}

/// Only a write tells that a viewer has gone.
gboolean PageServer::OnHeartbeat(void* self)
{
    auto* const server = static_cast<PageServer*>(self);
    for (auto& [message, viewer] : server->viewers_) {
        if (!viewer.isWriting) {
            viewer.isWriting = true;
            soup_message_body_append(
                soup_server_message_get_response_body(message), SOUP_MEMORY_STATIC, ":\n\n", std::strlen(":\n\n"));
            soup_server_message_unpause(message);
        }
    }
    return G_SOURCE_CONTINUE;
}

} // namespace kiv::sandbox
