#pragma once

#include <nlohmann/json_fwd.hpp>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kiv::simulator {

/** The processes that use the server, the ids they were given, and which of them want events. */
class Clients {
public:
    /** Notes the process and the bus name it calls from, and answers its client id. */
    std::string Meet(int pid, const std::string& busName);
    std::string Subscribe(int pid, const std::string& busName);
    std::string Unsubscribe(int pid, const std::string& busName);
    /** The owner of the bus name has left the bus. */
    void Leave(const std::string& busName);
    void LeaveAll() { clients_.clear(); }

    /** Gives every process this id; nothing means one formed from the pid. */
    void UseId(std::optional<std::string> id) { commonId_ = std::move(id); }

    /** Ids without repetition. */
    std::vector<std::string> Ids() const;
    std::vector<std::string> SubscribedIds() const;

    nlohmann::json ToJson() const;

private:
    struct Client {
        std::string id;
        std::string busName;
        int subscriptions = 0;
    };

    Client& Known(int pid, const std::string& busName);

    std::map<int, Client> clients_;
    std::optional<std::string> commonId_;
};

} // namespace kiv::simulator
