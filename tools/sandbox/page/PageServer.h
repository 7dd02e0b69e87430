#pragma once

#include "src/link/Owners.h"
#include "tools/sandbox/page/History.h"

#include <libsoup/soup.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kiv::sandbox {

// Serves the page and the history to browsers of this machine that know the token in the address, on a port that the
// system chooses. A viewer has at most one unsent chunk, so that a slow one costs no memory. Throws std::runtime_error
// if it cannot listen on the loopback. The object lives as long as the process.
class PageServer {
public:
    using OnDone = std::function<void(int exitCode, const std::string& output)>;
    struct Actions {
        std::function<std::string()> writePcap;
        // Runs a command of "kiv-sandbox control". Empty for a recording.
        std::function<void(const std::vector<std::string>& words, OnDone onDone)> control;
    };

    PageServer(History& history, Actions actions);
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

    guint Refusal(Message* message, const std::string& path) const;
    void Serve(Message* message, const std::string& page);
    void Control(Message* message) const;
    void AddViewer(Message* message);
    void TellLater();
    void TellAll(const char* first);
    void Tell(Message* message, Viewer& viewer, std::string chunk = {});

    History& history_;
    Actions actions_;
    std::string token_;
    std::string root_;
    std::string host_;
    link::ObjectOwner<SoupServer> server_;
    std::map<Message*, Viewer> viewers_; // until the "finished" signal of the message
    bool willTell_ = false;
};

} // namespace kiv::sandbox
