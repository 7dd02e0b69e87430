#include <KivServiceInterface.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

using Mac = std::array<unsigned char, NETSPK_MAC_LEN>;

// The documentation of a server says where a node record has the MAC address. The simulated server has it here.
constexpr std::size_t kMacOfNode = 96;

// Returns the MAC addresses of the speakers that the TV sees, connected or not.
std::vector<Mac> Nodes()
{
    std::vector<CNetSpkNodeInfo> records;
    GetNetSpkNodeList(records);
    std::vector<Mac> macs(records.size());
    for (std::size_t i = 0; i < macs.size(); ++i) {
        std::copy_n(records[i].opaque + kMacOfNode, NETSPK_MAC_LEN, macs[i].begin());
    }
    return macs;
}

// Connects new speakers that the user has confirmed. Returns the server's answer.
int Connect(const std::vector<Mac>& speakers)
{
    std::vector<unsigned char> addresses;
    for (const Mac& mac : speakers) {
        addresses.insert(addresses.end(), mac.begin(), mac.end());
    }
    return AutoConnectNewSpeakers(addresses.data(), static_cast<int>(speakers.size()));
}

// Returns the record of a speaker. The server and the application agree what the number means; here, it is the channel.
STNetSpkConfig Configured(const Mac& mac, int32_t channel)
{
    STNetSpkConfig speaker = {};
    speaker.nConfig = channel;
    std::copy(mac.begin(), mac.end(), speaker.mac);
    return speaker;
}

// Plays the TV's surround sound on two speakers and a subwoofer. Returns the number of channels.
int PlaySurround(const Mac& left, const Mac& right, const Mac& subwoofer, int reason)
{
    std::vector<STNetSpkConfig> speakers = {Configured(left, 1), Configured(right, 2), Configured(subwoofer, 3)};
    if (StartNetworkSpeaker(NETSPKSETTING_SURROUND, speakers, reason) < 0) {
        return -1;
    }
    return GetSurroundChannelNumber();
}

// Plays the same sound on all speakers. Returns the server's answer.
int PlayEverywhere(const std::vector<Mac>& rooms, int reason)
{
    if (!CanSelectTavrin() || !PreSelectTavrin()) {
        return -1;
    }
    SetTavrinUIMode(NETSPKSETTING_MULTIROOM); // the settings screen shows this mode
    std::vector<STNetSpkConfig> speakers;
    speakers.reserve(rooms.size());
    for (const Mac& mac : rooms) {
        speakers.push_back(Configured(mac, 0));
    }
    return StartNetworkSpeaker(NETSPKSETTING_MULTIROOM, speakers, reason);
}

// Changes a byte of the soundbar's sound mode. The soundbar defines what the bytes mean. Returns whether the mode has
// such a byte.
bool ChangeSoundMode(std::size_t position, unsigned char value)
{
    unsigned char device[KIV_SOUNDBAR_DEVICE_INFO_LEN] = {};
    unsigned char mode[KIV_SOUND_MODE_LEN] = {};
    const int length = GetSoundbarSoundMode(device, mode);
    if (length <= static_cast<int>(position) || length > KIV_SOUND_MODE_LEN || !IsSoundbarSupportSoundMode(device)) {
        return false;
    }
    mode[position] = value;
    int32_t ip = 0;
    std::memcpy(&ip, device + NETSPK_MAC_LEN, sizeof ip);
    SetSoundbarSoundMode(device, ip, mode, length);
    return true;
}

std::atomic<bool> g_receiverHasAtmos{false};

// Notes when an Atmos receiver is connected. The server sends no event when the receiver has gone: call
// kiv_is_receiver_atmos() again before the answer matters.
void FollowAtmos()
{
    register_atmos_support_cb([](int /*supported*/, void* /*userData*/) { g_receiverHasAtmos = true; }, nullptr);
    if (kiv_is_receiver_atmos()) {
        g_receiverHasAtmos = true;
    }
}

} // namespace

int main()
{
    const std::vector<Mac> nodes = Nodes();
    if (nodes.size() < 5) {
        std::puts("this is for the simulated server's home");
        return 1;
    }
    std::printf("%d connected\n", Connect({nodes[4]}));
    std::printf("%d surround channels\n", PlaySurround(nodes[0], nodes[1], nodes[2], 0));
    std::printf("%d rooms\n", PlayEverywhere({nodes[3], nodes[4]}, 0));
    std::printf("sound mode %s\n", ChangeSoundMode(1, 2) ? "changed" : "as it was");
    FollowAtmos();
    std::printf("Atmos: %s\n", g_receiverHasAtmos ? "yes" : "no");
    StopNetworkSpeaker(0);
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
