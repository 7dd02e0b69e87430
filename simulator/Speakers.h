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

/** Speakers by their groups. */
struct SpeakerSet {
    /** Group 1 is the first. */
    std::vector<std::string> groupNames;
    /** Node 1 is the first. */
    std::vector<Speaker> speakers;
};

/** The speakers that the TV can see. One that is not connected can be connected or started, and that is all. */
class Speakers {
public:
    Speakers();

    /** Takes these for the speakers that there are. */
    void Replace(SpeakerSet set) { set_ = std::move(set); }

    /** Connected or not. Null if there is no such speaker. */
    Speaker* Find(int node);
    Speaker* Find(const Mac& mac);
    Speaker* Find(const SpeakerId& id);
    std::vector<Speaker*> OfGroup(int group);
    std::vector<Speaker*> Connected();
    /** Null unless there is such a speaker and it is connected. */
    Speaker* Connected(const Mac& mac);
    /** Those that are connected, each once. */
    std::vector<Speaker*> Connected(const std::vector<SpeakerConfig>& configs);

    int ConnectNew(const Bytes& macList) { return Connect(macList, Connection::kNetwork); }
    int ConnectNewOutdoors(const Bytes& macList) { return Connect(macList, Connection::kDirect); }
    int ConnectByMobile(const Bytes& message);
    int ConnectDirectly(int node);
    int ConnectionType(const Bytes& configs);
    int ConnectionTypeOfNode(int node);

    /** Makes these the speakers that play. */
    void Play(const std::vector<Speaker*>& chosen);
    int Playing() const;

    int Rename(const Mac& mac, int ip, const std::string& name);
    int StartTest(const Mac& mac, int parameter, int channelType, int extra);
    int StopTest(const Mac& mac);
    int StopWatching(int node);

    Bytes ActiveInfo() const;
    Bytes Lists() const;
    int ListCount() const;
    Bytes Nodes() const;

    /** The connected ones as "speakers", the others as "discovered". */
    nlohmann::json ToJson() const;

private:
    Speaker* FindIf(const std::function<bool(const Speaker&)>& matches);
    int Connect(const Bytes& macList, Connection connection);
    /** Those of the connected speakers that belong together, the empty groups left out. */
    std::vector<SpeakerGroup> Groups() const;
    std::string CommonName(const std::vector<Speaker>& speakers) const;

    SpeakerSet set_;
};

} // namespace kiv::simulator
