#include "simulator/Clients.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace kiv::simulator {

std::string Clients::Subscribe(int pid, const std::string& busName)
{
    Client& client = Known(pid, busName);
    ++client.subscriptions;
    return client.id;
}

std::string Clients::Unsubscribe(int pid, const std::string& busName)
{
    Client& client = Known(pid, busName);
    client.subscriptions = std::max(client.subscriptions - 1, 0);
    return client.id;
}

void Clients::Leave(const std::string& busName)
{
    std::erase_if(clients_, [&busName](const auto& entry) { return entry.second.busName == busName; });
}

std::vector<std::string> Clients::Ids(int leastSubscriptions) const
{
    std::set<std::string> ids;
    for (const auto& [pid, client] : clients_) {
        if (client.subscriptions >= leastSubscriptions) {
            ids.insert(client.id);
        }
    }
    return {ids.begin(), ids.end()};
}

nlohmann::json Clients::ToJson() const
{
    nlohmann::json described = nlohmann::json::array();
    for (const auto& [pid, client] : clients_) {
        described.push_back(
            {{"pid", pid}, {"id", client.id}, {"busName", client.busName}, {"subscriptions", client.subscriptions}});
    }
    return described;
}

Clients::Client& Clients::Known(int pid, const std::string& busName)
{
    Client& client = clients_[pid];
    client.id = commonId_.value_or(fmt::format("tv_{}", static_cast<unsigned>(pid)));
    client.busName = busName;
    return client;
}

} // namespace kiv::simulator
