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

constexpr Mac LastByte(std::uint8_t last)
{
    return {0x02, 0x4b, 0x49, 0x56, 0x00, last};
}

} // namespace

Speakers::Speakers()
    : set_{
          {"Living room", "Kitchen", "Bedroom", "Terrace"},
          {
              {1,
               kLivingRoom,
               "Living room left",
               "Shelf",
               LastByte(0x01),
               {192, 168, 0, 21},
               20,
               Connection::kNetwork},
              {2,
               kLivingRoom,
               "Living room right",
               "Shelf",
               LastByte(0x02),
               {192, 168, 0, 22},
               20,
               Connection::kNetwork},
              {3, kLivingRoom, "Subwoofer", "Subwoofer", LastByte(0x03), {192, 168, 0, 23}, 15, Connection::kNetwork},
              {4, kKitchen, "Kitchen", "Compact", LastByte(0xa4), {192, 168, 0, 24}, 10, Connection::kNetwork},
              {5, kBedroom, "Bedroom", "Compact", LastByte(0x05), {192, 168, 0, 25}, 10, Connection::kNone},
              {6, kTerrace, "Terrace left", "Outdoor", LastByte(0x06), {192, 168, 0, 26}, 30, Connection::kNone},
              {7, kTerrace, "Terrace right", "Outdoor", LastByte(0x07), {192, 168, 0, 27}, 30, Connection::kNone},
          }}
{
}

Speaker* Speakers::FindIf(const std::function<bool(const Speaker&)>& matches)
{
    const auto found = std::ranges::find_if(set_.speakers, matches);
    return found == set_.speakers.end() ? nullptr : &*found;
}

Speaker* Speakers::Find(int node)
{
    return FindIf([node](const Speaker& speaker) { return speaker.node == node; });
}

Speaker* Speakers::Find(const Mac& mac)
{
    return FindIf([&mac](const Speaker& speaker) { return speaker.mac == mac; });
}

Speaker* Speakers::Find(const SpeakerId& id)
{
    return FindIf([&id](const Speaker& speaker) { return speaker.Id() == id; });
}

std::vector<Speaker*> Speakers::OfGroup(int group)
{
    std::vector<Speaker*> found;
    for (Speaker& speaker : set_.speakers) {
        if (speaker.group == group) {
            found.push_back(&speaker);
        }
    }
    return found;
}

std::vector<Speaker*> Speakers::Connected()
{
    std::vector<Speaker*> connected;
    for (Speaker& speaker : set_.speakers) {
        if (speaker.IsConnected()) {
            connected.push_back(&speaker);
        }
    }
    return connected;
}

Speaker* Speakers::Connected(const Mac& mac)
{
    Speaker* speaker = Find(mac);
    return speaker != nullptr && speaker->IsConnected() ? speaker : nullptr;
}

std::vector<Speaker*> Speakers::Connected(const std::vector<SpeakerConfig>& configs)
{
    std::vector<Speaker*> connected = Connected();
    std::erase_if(connected, [&configs](const Speaker* speaker) {
        return std::ranges::find(configs, speaker->mac, &SpeakerConfig::mac) == configs.end();
    });
    return connected;
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
    Speaker* speaker = mac ? Find(*mac) : nullptr;
    if (speaker == nullptr) {
        return kRefused;
    }
    speaker->connection = Connection::kNetwork;
    return kDone;
}

int Speakers::ConnectDirectly(int node)
{
    Speaker* speaker = Find(node);
    if (speaker == nullptr) {
        return kRefused;
    }
    speaker->connection = Connection::kDirect;
    return kDone;
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
    Speaker* speaker = Connected(mac);
    if (speaker == nullptr) {
        return kRefused;
    }
    speaker->name = name;
    return kDone;
}

int Speakers::StartTest(const Mac& mac, int parameter, int channelType, int extra)
{
    Speaker* speaker = Connected(mac);
    if (speaker == nullptr) {
        return kRefused;
    }
    speaker->test = {parameter, channelType, extra};
    return kDone;
}

int Speakers::StopTest(const Mac& mac)
{
    Speaker* speaker = Connected(mac);
    if (speaker == nullptr) {
        return kRefused;
    }
    speaker->test.reset();
    return kDone;
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

int Speakers::ListCount() const
{
    return static_cast<int>(Groups().size());
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
