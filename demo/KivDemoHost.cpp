// A small TV application. It shows step by step what a TV can do with network speakers.

#include "demo/LivingRoom.h"
#include "demo/Story.h"
#include <KivServiceInterface.h>

#include <fmt/ranges.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

using namespace demo;

namespace {

constexpr const char* kSubscription = "demo";
constexpr int kStartReason = 1;
constexpr int kStopType = 0;
constexpr unsigned kLongestRunSeconds = 60;
constexpr std::chrono::milliseconds kRest{600};

// The event by which the simulated server reports volumes. It has 14 bytes for each speaker, and the last four of them
// are the volume.
constexpr int kVolumeEvent = 0x02020040;
constexpr std::size_t kVolumeAt = 10;

using Mac = std::array<unsigned char, NETSPK_MAC_LEN>;

constexpr Mac kLeft = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01};
constexpr Mac kRight = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x02};
constexpr Mac kSubwoofer = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x03};
constexpr Mac kBedroom = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x05};
constexpr Mac kSoundbar = {0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0};

std::string Text(const Mac& mac)
{
    return fmt::format("{:02x}", fmt::join(mac, ":"));
}

// Returns an IPv4 address in the library's form: the first octet is in the lowest byte.
int Ip(int a, int b, int c, int d)
{
    return a | b << 8 | c << 16 | d << 24;
}

STNetSpkConfig Config(const Mac& mac, int32_t config)
{
    STNetSpkConfig speaker{};
    speaker.nConfig = config;
    std::memcpy(speaker.mac, mac.data(), mac.size());
    return speaker;
}

// --- Events, received on the library's monitor thread ---

struct Event {
    int id;
    std::vector<unsigned char> data;
};

std::mutex g_lock;
std::condition_variable g_arrived;
std::optional<Event> g_event;
bool g_atmosReported = false;

void OnEvent(int id, void* data, int length)
{
    const auto* bytes = static_cast<unsigned char*>(data);
    const std::lock_guard lock(g_lock);
    g_event = Event{id, {bytes, bytes + length}};
    g_arrived.notify_one();
}

void OnAtmos(int, void*)
{
    const std::lock_guard lock(g_lock);
    g_atmosReported = true;
    g_arrived.notify_one();
}

Event WaitForEvent(int id)
{
    std::unique_lock lock(g_lock);
    g_arrived.wait(lock, [id] { return g_event && g_event->id == id; });
    Event event = *std::exchange(g_event, std::nullopt);
    Say("(event callback)", "event {:#010x} with {} bytes of data", static_cast<unsigned>(event.id), event.data.size());
    return event;
}

// --- The tour ---

void Listen()
{
    Chapter("events: the first call starts the server if it does not run");
    Require(!GetWhetherKivDisabled(), "this device has no network speakers");
    Require(SubscribeNamServiceCallback(kSubscription, OnEvent) == 1, "the subscription failed");
    Require(register_atmos_support_cb(OnAtmos, nullptr) == 0, "the Atmos registration failed");
    Require(!kiv_is_receiver_atmos(), "Atmos is supported too early");
    Say("SubscribeNamServiceCallback", "subscribed to the server's events");
    Say("register_atmos_support_cb", "subscribed to Atmos");
    WaitUntilEventsArrive();
}

void TakeInventory()
{
    Chapter("inventory");
    Say("FlagEnableNetworkSpeaker", "network speakers are {}", FlagEnableNetworkSpeaker() ? "enabled" : "disabled");
    Say("CanEnterTavrinSettings", "the multi-room settings {} be entered",
        CanEnterTavrinSettings() ? "may" : "may not");

    std::vector<STNetSpkListInfo> lists;
    const int number = GetNetSpkListInfo(lists);
    Say("GetNetSpkListInfo", "{} speaker lists", number);
    Require(number == GetNetSpkListInfoNumber(), "the lists are not as many as announced");

    std::vector<CNetSpkNodeInfo> nodes;
    Say("GetNetSpkNodeList", "{} speaker nodes in the network", GetNetSpkNodeList(nodes));
    Require(nodes.size() > lists.size(), "no speaker is left to connect");
}

void ConnectSpeaker()
{
    Chapter("connecting a speaker that was only seen so far");
    std::vector<STNetSpkConfig> bedroom{Config(kBedroom, 0)};
    Say("GetSpksConnectionType", "{}: {}, not connected", Text(kBedroom), GetSpksConnectionType(&bedroom));
    Say("AutoConnectNewSpeakers", "{} speaker connected", AutoConnectNewSpeakers(kBedroom.data(), 1));
    Say("GetSpksConnectionType", "{}: {}, home network", Text(kBedroom), GetSpksConnectionType(&bedroom));
    Require(GetSpksConnectionTypeByID(5) == 1, "the speaker was not connected");
}

void StartSpeakers()
{
    std::vector<STNetSpkConfig> speakers = {Config(kLeft, 1), Config(kRight, 2), Config(kSubwoofer, 3)};
    Chapter("the TV's sound on three speakers, as its surround set");
    const int started = StartNetworkSpeaker(NETSPKSETTING_SURROUND, speakers, kStartReason);
    Say("StartNetworkSpeaker", "{} speakers play now", started);
    Require(started == static_cast<int>(speakers.size()), "not all speakers were started");
    const int channels = GetSurroundChannelNumber();
    Say("GetSurroundChannelNumber", "{} surround channels", channels);
    Require(channels == started, "the surround channels are not those of the speakers");

    char name[NETSPK_LIST_NAME_LEN] = {};
    char type[NETSPK_SPEAKER_TYPE_LEN + 1] = {};
    std::vector<spk_info_s> active;
    const int count = GetActiveNetSpkInfo(name, type, active);
    Say("GetActiveNetSpkInfo", "active: \"{}\", {} speakers of type {}", name, count, type);
    Require(count == started && active.size() == speakers.size(), "other speakers are active");

    StartNetSpkTest(kLeft.data(), 0, 1, 0);
    Say("StartNetSpkTest", "a test tone on {}", Text(kLeft));
    StopNetSpkTest(kLeft.data(), 0, 0);
    Say("StopNetSpkTest", "and silence");
}

int VolumeFromEvent()
{
    const Event event = WaitForEvent(kVolumeEvent);
    Require(event.data.size() >= kVolumeAt + sizeof(int32_t), "an event without a volume");
    int32_t volume = 0;
    std::memcpy(&volume, event.data.data() + kVolumeAt, sizeof volume);
    return volume;
}

void SetNameAndVolume()
{
    Chapter("name and volume");
    SetNetSpkName(kLeft.data(), Ip(192, 168, 0, 21), "Bookshelf");
    Say("SetNetSpkName", "{} is the Bookshelf now", Text(kLeft));
    SetNetSpkVolume(kLeft.data(), Ip(192, 168, 0, 21), 33);
    Say("SetNetSpkVolume", "volume set to {}", VolumeFromEvent());
    IncreaseNetSpkVolume(kLeft.data(), Ip(192, 168, 0, 21));
    const int louder = VolumeFromEvent();
    Say("IncreaseNetSpkVolume", "one step up: {}", louder);
    Require(louder == 34, "the volume is another");
    ResetAllNetSpkVolume();
    Say("ResetAllNetSpkVolume", "all volumes reset: {}", VolumeFromEvent());
}

void SetSoundMode()
{
    Chapter("the soundbar's sound mode");
    unsigned char device[KIV_SOUNDBAR_DEVICE_INFO_LEN] = {};
    Require(GetSoundbarDeviceInfo(device) >= 0, "no soundbar");
    Mac mac{};
    std::memcpy(mac.data(), device, mac.size());
    Say("GetSoundbarDeviceInfo", "soundbar {} at {}.{}.{}.{}", Text(mac), device[6], device[7], device[8], device[9]);
    Require(mac == kSoundbar, "another soundbar");

    unsigned char version[KIV_SOUND_MODE_LEN] = {};
    const int protocol = GetSoundbarProtocolVersion(mac.data(), version, sizeof version);
    Say("GetSoundbarProtocolVersion", "sound-mode protocol version {}", protocol);
    SetSoundbarSupportSoundMode(mac.data(), Ip(192, 168, 0, 20), 1);
    Require(IsSoundbarSupportSoundMode(mac.data()), "the soundbar supports no sound modes");

    const std::array<unsigned char, 5> night = {1, 4, 0, 2, 0};
    SetSoundbarSoundMode(mac.data(), Ip(192, 168, 0, 20), night.data(), static_cast<int>(night.size()));
    unsigned char mode[KIV_SOUND_MODE_LEN] = {};
    const int length = GetSoundbarSoundMode(device, mode);
    Say("GetSoundbarSoundMode", "set, and read back: {} bytes, {:02x}", length,
        fmt::join(mode, mode + night.size(), " "));
    Require(std::memcmp(mode, night.data(), night.size()) == 0, "the soundbar did not keep its sound mode");
}

void ChooseMultiRoom()
{
    Chapter("from surround to multi-room");
    Say("GetNetSpkSettingMode", "setting mode {} (80: surround)", GetNetSpkSettingMode());
    Require(CanSelectTavrin() && PreSelectTavrin(), "multi-room cannot be selected");
    Say("PreSelectTavrin", "multi-room is preselected, and {} be cancelled", CanCancelTavrin() ? "can" : "cannot");
    Say("SetTavrinUIMode", "the settings screen shows mode {}", SetTavrinUIMode(NETSPKSETTING_MULTIROOM));
    Say("GetTavrinUIMode", "multi-room is never reported: it reads {}", GetTavrinUIMode());
    Require(DisableSurround() == 0 && GetSurroundChannelNumber() == 0, "surround operation goes on");
    Say("DisableSurround", "no surround channels any more");
}

void WaitForAtmos()
{
    Chapter("somebody connects an Atmos receiver");
    ConnectAtmosReceiver();
    WaitForEvent(NAMSERVICE_ATMOS_STATE);
    {
        const std::lock_guard lock(g_lock);
        Require(g_atmosReported, "the Atmos callback was not called first");
    }
    Require(kiv_is_receiver_atmos(), "the server does not know of its own event");
    Say("kiv_is_receiver_atmos", "the receiver supports Atmos");
}

void Stop()
{
    Chapter("the TV's own sound again");
    Require(StopNetworkSpeaker(kStopType) == kStopType, "the speakers were not stopped");
    Say("StopNetworkSpeaker", "stopped");
    Require(unregister_atmos_support_cb(OnAtmos) == 0, "the Atmos registration was not ended");
    UnsubscribeNamServiceCallback(kSubscription);
    Require(CNSGdbus::m_pInstance->m_DestroyMessageMonitor() == 0, "the monitor thread was not ended");
    Say("UnsubscribeNamServiceCallback", "unsubscribed");
}

} // namespace

// With --trace, prints plain lines that can be read among those of the log and the bus trace. With --slow, rests after
// each step.
int main(int argc, char** argv)
try {
    const auto isGiven = [&](const char* option) { return argc > 1 && std::strcmp(argv[1], option) == 0; };
    UseForm(isGiven("--trace") ? Form::kLines : Form::kStory);
    RestAfterSteps(isGiven("--slow") ? kRest : std::chrono::milliseconds(0));
    // SIGALRM ends the demo if a step hangs.
    alarm(kLongestRunSeconds);
    for (void (*step)() :
         {Listen, TakeInventory, ConnectSpeaker, StartSpeakers, SetNameAndVolume, SetSoundMode, ChooseMultiRoom,
          WaitForAtmos, Stop}) {
        step();
        ShowHome();
    }
    return EXIT_SUCCESS;
} catch (const std::exception& failure) {
    PrintFailure(failure.what());
    return EXIT_FAILURE;
}
