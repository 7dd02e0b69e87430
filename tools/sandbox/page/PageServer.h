#pragma once

#include "page/History.h"

#include <libsoup/soup.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kiv::sandbox {

/**
 * Serves the page and the history to browsers of this machine that know the token in the address, on a port that the
 * system chooses. A viewer has one chunk under way at most: one that does not read holds no memory. Throws
 * std::runtime_error if there is no loopback to listen on.
 */
class PageServer {
public:
    struct Outcome {
        int exitCode;
        std::string output;
    };
    struct Actions {
        std::function<std::string()> writePcap;
        /// Runs a command of "kiv-sandbox control"; empty for a recording.
        std::function<void(const std::vector<std::string>& words, std::function<void(const Outcome&)> onDone)> control;
    };

    PageServer(History& history, Actions actions);
    ~PageServer();
    PageServer(const PageServer&) = delete;
    PageServer& operator=(const PageServer&) = delete;

    std::string Address() const { return "http://" + host_ + root_; }
    const std::string& Token() const { return token_; }

private:
    struct Viewer {
        std::uint64_t next;
        std::uint64_t version = 0;
        bool isWriting = false;
    };
    using Message = SoupServerMessage;

    static void OnHeaders(SoupServer*, Message* message, const char* path, GHashTable*, void* self);
    static void OnRequest(SoupServer*, Message* message, const char* path, GHashTable*, void* self);
    static gboolean OnHeartbeat(void* self);

    guint Refusal(Message* message, const std::string& path) const;
    void Serve(Message* message, const std::string& page);
    void Control(Message* message);
    void AddViewer(Message* message);
    void TellLater();
    void Tell(Message* message, Viewer& viewer);

    History& history_;
    Actions actions_;
    std::string token_;
    std::string root_;
    std::string host_;
    std::unique_ptr<SoupServer, decltype(&g_object_unref)> server_;
    std::map<Message*, Viewer> viewers_;
    int running_ = 0; // commands
    guint telling_ = 0;
    guint heartbeat_;
};

} // namespace kiv::sandbox
