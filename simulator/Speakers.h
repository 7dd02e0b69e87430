#pragma once

#include "simulator/Glib.h"
#include "simulator/Records.h"
#include "simulator/Speaker.h"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <string>
#include <vector>

namespace kiv::simulator {

/** The speakers that the TV can see. One that is not connected can be connected or started, and that is all. */
class Speakers {
public:
    Speakers();

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

    std::vector<Speaker> speakers_;
};

} // namespace kiv::simulator
