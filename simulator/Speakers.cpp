#include "simulator/Speakers.h"

#include "simulator/Answer.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <set>

namespace kiv::simulator {

namespace {

enum Group : int { kLivingRoom = 1, kKitchen, kBedroom, kTerrace };

// Changes a speaker. Refuses a speaker that is not known.
template <typename Change>
int ChangeIfKnown(Speaker* speaker, const Change& change)
{
    if (speaker == nullptr) {
        return kRefused;
    }
    change(*speaker);
    return kDone;
}

} // namespace

Speakers::Speakers() : set_{{"Living room", "Kitchen", "Bedroom", "Terrace"}, {}}
{
    const auto add = [this](int group, const char* name, const char* type, int volume, Connection connection) {
        const auto node = static_cast<std::uint8_t>(set_.speakers.size() + 1);
        // The label of the fourth speaker has a letter: KIVA4.
        const auto last = static_cast<std::uint8_t>(node == 4 ? 0xa4 : node);
        const Mac mac = {0x02, 0x4b, 0x49, 0x56, 0x00, last};
        set_.speakers.push_back({node, group, name, type, mac, DefaultIp(node), volume, connection});
    };
    add(kLivingRoom, "Living room left", "Shelf", 20, Connection::kNetwork);
    add(kLivingRoom, "Living room right", "Shelf", 20, Connection::kNetwork);
    add(kLivingRoom, "Subwoofer", "Subwoofer", 15, Connection::kNetwork);
    add(kKitchen, "Kitchen", "Compact", 10, Connection::kNetwork);
    add(kBedroom, "Bedroom", "Compact", 10, Connection::kNone);
    add(kTerrace, "Terrace left", "Outdoor", 30, Connection::kNone);
    add(kTerrace, "Terrace right", "Outdoor", 30, Connection::kNone);
}

Speaker* Speakers::FindFirst(const Matches& matches)
{
    const auto found = std::ranges::find_if(set_.speakers, matches);
    return found == set_.speakers.end() ? nullptr : &*found;
}

Speaker* Speakers::Find(int node)
{
    return FindFirst([node](const Speaker& speaker) { return speaker.node == node; });
}

Speaker* Speakers::Find(const Mac& mac)
{
    return FindFirst([&mac](const Speaker& speaker) { return speaker.mac == mac; });
}

Speaker* Speakers::Find(const SpeakerId& id)
{
    return FindFirst([&id](const Speaker& speaker) { return speaker.Id() == id; });
}

std::vector<Speaker*> Speakers::FindAll(const Matches& matches)
{
    std::vector<Speaker*> found;
    for (Speaker& speaker : set_.speakers) {
        if (matches(speaker)) {
            found.push_back(&speaker);
        }
    }
    return found;
}

std::vector<Speaker*> Speakers::OfGroup(int group)
{
    return FindAll([group](const Speaker& speaker) { return speaker.group == group; });
}

std::vector<Speaker*> Speakers::Connected()
{
    return FindAll(&Speaker::IsConnected);
}

Speaker* Speakers::Connected(const Mac& mac)
{
    Speaker* speaker = Find(mac);
    return speaker != nullptr && speaker->IsConnected() ? speaker : nullptr;
}

std::vector<Speaker*> Speakers::Connected(const std::vector<SpeakerConfig>& configs)
{
    return FindAll([&configs](const Speaker& speaker) {
        return speaker.IsConnected() && std::ranges::find(configs, speaker.mac, &SpeakerConfig::mac) != configs.end();
    });
}

int Speakers::Connect(const Bytes& macList, Connection connection)
{
    const auto macs = ReadMacList(macList);
    if (!macs) {
        return kRefused;
    }
    int connected = 0;
    for (const Mac& mac : *macs) {
        if (Speaker* speaker = Find(mac); speaker != nullptr && !speaker->IsConnected()) {
            speaker->connection = connection;
            ++connected;
        }
    }
    return connected;
}

int Speakers::ConnectByMobile(const Bytes& message)
{
    const auto mac = ReadMobileMessage(message);
    return ChangeIfKnown(
        mac ? Find(*mac) : nullptr, [](Speaker& speaker) { speaker.connection = Connection::kNetwork; });
}

int Speakers::ConnectDirectly(int node)
{
    return ChangeIfKnown(Find(node), [](Speaker& speaker) { speaker.connection = Connection::kDirect; });
}

int Speakers::ConnectionType(const Bytes& configs)
{
    const auto named = ReadConfigs(configs);
    if (!named) {
        return kRefused;
    }
    std::set<Connection> types;
    for (const SpeakerConfig& config : *named) {
        const Speaker* speaker = Find(config.mac);
        if (speaker == nullptr) {
            return kRefused;
        }
        types.insert(speaker->connection);
    }
    if (types.empty()) {
        return static_cast<int>(Connection::kNone);
    }
    return static_cast<int>(types.size() == 1 ? *types.begin() : Connection::kMixed);
}

int Speakers::ConnectionTypeOfNode(int node)
{
    const Speaker* speaker = Find(node);
    return speaker == nullptr ? kRefused : static_cast<int>(speaker->connection);
}

void Speakers::Play(const std::vector<Speaker*>& chosen)
{
    for (Speaker& speaker : set_.speakers) {
        speaker.active = false;
    }
    for (Speaker* speaker : chosen) {
        speaker->active = true;
        if (!speaker->IsConnected()) {
            speaker->connection = Connection::kNetwork;
        }
    }
}

int Speakers::Playing() const
{
    return static_cast<int>(std::ranges::count(set_.speakers, true, &Speaker::active));
}

int Speakers::Rename(const Mac& mac, int /*ip*/, const std::string& name)
{
    return ChangeIfKnown(Connected(mac), [&name](Speaker& speaker) { speaker.name = name; });
}

int Speakers::StartTest(const Mac& mac, int parameter, int channelType, int extra)
{
    const SpeakerTest test = {parameter, channelType, extra};
    return ChangeIfKnown(Connected(mac), [&test](Speaker& speaker) { speaker.test = test; });
}

int Speakers::StopTest(const Mac& mac)
{
    return ChangeIfKnown(Connected(mac), [](Speaker& speaker) { speaker.test.reset(); });
}

int Speakers::StopWatching(int node)
{
    Speaker* speaker = Find(node);
    if (speaker == nullptr || !speaker->watched) {
        return 0;
    }
    speaker->watched = false;
    return 1;
}

std::string Speakers::CommonName(const std::vector<Speaker>& speakers) const
{
    if (speakers.size() == 1) {
        return speakers.front().name;
    }
    std::set<int> groups;
    for (const Speaker& speaker : speakers) {
        groups.insert(speaker.group);
    }
    std::vector<std::string> names;
    std::ranges::transform(groups, std::back_inserter(names), [this](int group) {
        return set_.groupNames.at(static_cast<std::size_t>(group) - 1);
    });
    return fmt::format("{}", fmt::join(names, " + "));
}

Bytes Speakers::ActiveInfo() const
{
    std::vector<Speaker> active;
    std::ranges::copy_if(set_.speakers, std::back_inserter(active), &Speaker::active);
    return WriteActiveGroup(CommonName(active), active);
}

std::vector<SpeakerGroup> Speakers::Groups() const
{
    std::vector<SpeakerGroup> groups;
    int number = 0;
    for (const std::string& name : set_.groupNames) {
        ++number;
        std::vector<Speaker> members;
        for (const Speaker& speaker : set_.speakers) {
            if (speaker.group == number && speaker.IsConnected()) {
                members.push_back(speaker);
            }
        }
        if (!members.empty()) {
            groups.push_back({number, name, members});
        }
    }
    return groups;
}

Bytes Speakers::Lists() const
{
    Writer lists;
    for (const SpeakerGroup& group : Groups()) {
        lists.Append(WriteList(group));
    }
    return lists.Written();
}

Bytes Speakers::Nodes() const
{
    Writer nodes;
    for (const Speaker& speaker : set_.speakers) {
        nodes.Append(WriteNode(speaker));
    }
    return nodes.Written();
}

nlohmann::json Speakers::ToJson() const
{
    nlohmann::json connected = nlohmann::json::array();
    nlohmann::json discovered = nlohmann::json::array();
    for (const Speaker& speaker : set_.speakers) {
        (speaker.IsConnected() ? connected : discovered).push_back(speaker);
    }
    return {{"speakers", connected}, {"discovered", discovered}, {"groups", set_.groupNames}};
}

} // namespace kiv::simulator
