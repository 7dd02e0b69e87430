#include "simulator/Methods.h"

#include <array>
#include <tuple>
#include <type_traits>

namespace kiv::simulator {

namespace {

GVariant* Tuple(int value)
{
    return g_variant_new("(i)", value);
}

GVariant* Tuple(bool value)
{
    return g_variant_new("(b)", value ? TRUE : FALSE);
}

GVariant* Tuple(const std::string& value)
{
    return g_variant_new("(s)", value.c_str());
}

GVariant* Tuple(const Bytes& value)
{
    return g_variant_new("(@ay)", NewByteArray(value));
}

// Reads the arguments of a call, one after another.
class ArgumentReader {
public:
    explicit ArgumentReader(const Call& call) : call_(call) {}

    template <typename T>
    T Next()
    {
        T value{};
        Read(value);
        return value;
    }

private:
    template <typename T>
    void Read(T& value)
    {
        value = call_.Argument<T>(next_++);
    }

    // An address is sent as single bytes, one in each argument.
    template <std::size_t Size>
    void Read(std::array<std::uint8_t, Size>& value)
    {
        for (std::uint8_t& byte : value) {
            Read(byte);
        }
    }

    const Call& call_;
    std::size_t next_ = 0;
};

template <typename... Args, typename Object, typename Function>
Method ServeWith(Object& object, Function function)
{
    return [&object, function](const Call& call) {
        ArgumentReader reader(call);
        // Braces, unlike parentheses, evaluate the elements in order.
        const std::tuple<Object&, std::decay_t<Args>...> arguments{object, reader.Next<std::decay_t<Args>>()...};
        return Tuple(std::apply(function, arguments));
    };
}

// Passes the first arguments of the call to a member function, and answers with its result.
template <typename Object, typename Result, typename... Args>
Method Serve(Object& object, Result (Object::*function)(Args...))
{
    return ServeWith<Args...>(object, function);
}

template <typename Object, typename Result, typename... Args>
Method Serve(Object& object, Result (Object::*function)(Args...) const)
{
    return ServeWith<Args...>(object, function);
}

// Serves a method that a process calls about itself. The arguments are its process id, and the bus name from which it
// calls.
Method Serve(Clients& clients, std::string (Clients::*function)(int, const std::string&))
{
    return [&clients, function](const Call& call) {
        return Tuple((clients.*function)(call.Argument<int>(0), call.Sender()));
    };
}

} // namespace

Methods ServerMethods(Home& home, Clients& clients)
{
    Speakers& speakers = home.Speakers();
    Volumes& volumes = home.Volumes();
    Soundbars& soundbars = home.Soundbars();
    return {
        {"check_dbus_connection", Serve(clients, &Clients::Meet)},
        {"SubscribeNamServiceCallback", Serve(clients, &Clients::Subscribe)},
        {"UnsubscribeNamServiceCallback", Serve(clients, &Clients::Unsubscribe)},

        {"AutoConnectNewSpeakers", Serve(speakers, &Speakers::ConnectNew)},
        {"AutoConnectNewSpeakersForOutdoor", Serve(speakers, &Speakers::ConnectNewOutdoors)},
        {"ConnectNetworkSpeakerByMobile", Serve(speakers, &Speakers::ConnectByMobile)},
        {"ConnectToSpeakerForInfraLessSetup", Serve(speakers, &Speakers::ConnectDirectly)},
        {"GetSpksConnectionType", Serve(speakers, &Speakers::ConnectionType)},
        {"GetSpksConnectionTypeByID", Serve(speakers, &Speakers::ConnectionTypeOfNode)},

        {"StartNetworkSpeaker", Serve(home, &Home::StartSpeakers)},
        {"StartNetworkSpeakerByID", Serve(home, &Home::StartSpeakerNode)},
        {"Vireon_StartNetworkSpeakerByID", Serve(home, &Home::StartSpeakerById)},
        {"StartNetworkSpeakerGroupByMobile", Serve(home, &Home::StartGroup)},
        {"StopNetworkSpeaker", Serve(home, &Home::StopSpeakers)},
        {"DisableSurround", Serve(home, &Home::DisableSurround)},
        {"GetSurroundChannelNumber", Serve(home, &Home::SurroundChannels)},
        {"kiv_is_receiver_atmos", Serve(home, &Home::ReceiverHasAtmos)},

        {"GetActiveNetSpkInfo", Serve(speakers, &Speakers::ActiveInfo)},
        {"GetNetSpkListInfo", Serve(speakers, &Speakers::Lists)},
        {"GetNetSpkListInfoNumber", Serve(speakers, &Speakers::ListCount)},
        {"GetNetSpkNodeList", Serve(speakers, &Speakers::Nodes)},
        {"NodeRemoveFromWatcher", Serve(speakers, &Speakers::StopWatching)},
        {"SetNetSpkName", Serve(speakers, &Speakers::Rename)},
        {"StartNetSpkTest", Serve(speakers, &Speakers::StartTest)},
        {"StopNetSpkTest", Serve(speakers, &Speakers::StopTest)},

        {"GetNetSpkVolume", Serve(volumes, &Volumes::Get)},
        {"SetNetSpkVolume", Serve(volumes, &Volumes::Set)},
        {"IncreaseNetSpkVolume", Serve(volumes, &Volumes::Increase)},
        {"DecreaseNetSpkVolume", Serve(volumes, &Volumes::Decrease)},
        {"ResetNetSpkVolume", Serve(volumes, &Volumes::Reset)},
        {"GetNetSpkVolumeList", Serve(volumes, &Volumes::GetList)},
        {"IncreaseNetSpkVolumeList", Serve(volumes, &Volumes::IncreaseList)},
        {"DecreaseNetSpkVolumeList", Serve(volumes, &Volumes::DecreaseList)},
        {"ResetNetSpkVolumeList", Serve(volumes, &Volumes::ResetList)},
        {"ResetAllNetSpkVolume", Serve(volumes, &Volumes::ResetAll)},

        {"SetSoundbarSoundMode", Serve(soundbars, &Soundbars::SetSoundMode)},
        {"GetSoundbarSoundMode", Serve(soundbars, &Soundbars::SoundMode)},
        {"GetSoundbarDeviceInfo", Serve(soundbars, &Soundbars::DeviceInfo)},
        {"SetSoundbarSupportSoundMode", Serve(soundbars, &Soundbars::SetSupportsSoundMode)},
        {"IsSoundbarSupportSoundMode", Serve(soundbars, &Soundbars::SupportsSoundMode)},
        {"GetSoundbarProtocolVersion", Serve(soundbars, &Soundbars::ProtocolVersion)},

        {"SetNetSpkSettingMode", Serve(home, &Home::SetSettingMode)},
        {"GetNetSpkSettingMode", Serve(home, &Home::SettingMode)},
        {"SetTavrinUIMode", Serve(home, &Home::SetTavrinUiMode)},
        {"GetTavrinUIMode", Serve(home, &Home::TavrinUiMode)},
        {"CanSelectTavrin", Serve(home, &Home::CanSelectTavrin)},
        {"PreSelectTavrin", Serve(home, &Home::PreSelectTavrin)},
        {"CanCancelTavrin", Serve(home, &Home::CanCancelTavrin)},
        {"CanEnterTavrinSettings", Serve(home, &Home::CanEnterTavrinSettings)},
        {"FlagEnableNetworkSpeaker", [](const Call&) { return Tuple(true); }},
    };
}

} // namespace kiv::simulator
