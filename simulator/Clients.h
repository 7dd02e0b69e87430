#pragma once

#include <nlohmann/json_fwd.hpp>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kiv::simulator {

// The processes that use the server, their client ids, and their subscriptions.
class Clients {
public:
    // Notes a process and the bus name from which it calls. Returns its client id.
    std::string Meet(int pid, const std::string& busName) { return Known(pid, busName).id; }
    std::string Subscribe(int pid, const std::string& busName);
    std::string Unsubscribe(int pid, const std::string& busName);
    // Forgets the owner of a bus name that has left the bus.
    void Leave(const std::string& busName);
    void LeaveAll() { clients_.clear(); }

    // Gives every process this id. Without one, ids are formed from process ids.
    void UseId(std::optional<std::string> id) { commonId_ = std::move(id); }

    // Return each id once.
    std::vector<std::string> Ids() const { return Ids(0); }
    std::vector<std::string> SubscribedIds() const { return Ids(1); }

    nlohmann::json ToJson() const;

private:
    struct Client {
        std::string id;
        std::string busName;
        int subscriptions = 0;
    };

    Client& Known(int pid, const std::string& busName);
    std::vector<std::string> Ids(int leastSubscriptions) const;

    std::map<int, Client> clients_;
    std::optional<std::string> commonId_;
};

} // namespace kiv::simulator
