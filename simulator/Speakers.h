#pragma once

#include "simulator/Glib.h"
#include "simulator/Records.h"
#include "simulator/Speaker.h"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kiv::simulator {

// The speakers of a home, and the names of their groups.
struct SpeakerSet {
    // The first name is that of group 1.
    std::vector<std::string> groupNames;
    // The first speaker is node 1.
    std::vector<Speaker> speakers;
};

// The speakers that the TV sees. A speaker that is not connected can be connected or started; other methods refuse it.
class Speakers {
public:
    Speakers();

    // Replaces all speakers.
    void Replace(SpeakerSet set) { set_ = std::move(set); }

    // Finds a speaker, connected or not. Returns null if there is none.
    Speaker* Find(int node);
    Speaker* Find(const Mac& mac);
    Speaker* Find(const SpeakerId& id);
    std::vector<Speaker*> OfGroup(int group);
    std::vector<Speaker*> Connected();
    // Returns null unless there is such a speaker and it is connected.
    Speaker* Connected(const Mac& mac);
    // Returns the speakers of these that are connected, each once.
    std::vector<Speaker*> Connected(const std::vector<SpeakerConfig>& configs);

    int ConnectNew(const Bytes& macList) { return Connect(macList, Connection::kNetwork); }
    int ConnectNewOutdoors(const Bytes& macList) { return Connect(macList, Connection::kDirect); }
    int ConnectByMobile(const Bytes& message);
    int ConnectDirectly(int node);
    int ConnectionType(const Bytes& configs);
    int ConnectionTypeOfNode(int node);

    // Makes exactly these speakers play.
    void Play(const std::vector<Speaker*>& chosen);
    int Playing() const;

    int Rename(const Mac& mac, int ip, const std::string& name);
    int StartTest(const Mac& mac, int parameter, int channelType, int extra);
    int StopTest(const Mac& mac);
    int StopWatching(int node);

    Bytes ActiveInfo() const;
    Bytes Lists() const;
    int ListCount() const { return static_cast<int>(Groups().size()); }
    Bytes Nodes() const;

    // Returns the connected speakers as "speakers", and the others as "discovered".
    nlohmann::json ToJson() const;

private:
    using Matches = std::function<bool(const Speaker&)>;

    Speaker* FindFirst(const Matches& matches);
    std::vector<Speaker*> FindAll(const Matches& matches);
    int Connect(const Bytes& macList, Connection connection);
    // Returns the groups that have connected speakers, with these speakers.
    std::vector<SpeakerGroup> Groups() const;
    std::string CommonName(const std::vector<Speaker>& speakers) const;

    SpeakerSet set_;
};

} // namespace kiv::simulator
