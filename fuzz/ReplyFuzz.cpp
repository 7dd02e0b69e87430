// Fuzzes the replies of the server. Input: an index into kReaders, a byte that the reader may use, and the reply.

#include "KivServiceInterface.h"
#include "fuzz/Bus.h"
#include "fuzz/Input.h"
#include "fuzz/Platform.h"
#include "fuzz/Target.h"
#include "src/link/BusClient.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

using namespace kiv::fuzz;
using kiv::link::VariantOwner;

namespace {

constexpr unsigned char kMac[NETSPK_MAC_LEN] = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01};

// --- Decoding replies without the library's functions ---

bool IsOfType(const Answer& reply, const char* type)
{
    return reply.body && g_variant_is_of_type(reply.body.get(), G_VARIANT_TYPE(type)) != FALSE;
}

VariantOwner FirstMember(const Answer& reply)
{
    const bool hasMember = reply.body && g_variant_n_children(reply.body.get()) != 0;
    return VariantOwner(hasMember ? g_variant_get_child_value(reply.body.get(), 0) : nullptr);
}

int IntIn(const Answer& reply, int ofOtherType, int ofError)
{
    if (!reply.body) {
        return ofError;
    }
    return IsOfType(reply, "(i)") ? g_variant_get_int32(FirstMember(reply).get()) : ofOtherType;
}

bool BoolIn(const Answer& reply)
{
    return IsOfType(reply, "(b)") && g_variant_get_boolean(FirstMember(reply).get()) != FALSE;
}

std::string StringIn(const Answer& reply, const std::string& otherwise)
{
    return IsOfType(reply, "(s)") ? g_variant_get_string(FirstMember(reply).get(), nullptr) : otherwise;
}

std::vector<unsigned char> BytesIn(const Answer& reply)
{
    const VariantOwner member = FirstMember(reply);
    if (!member || g_variant_is_of_type(member.get(), G_VARIANT_TYPE_BYTESTRING) == FALSE) {
        return {};
    }
    std::vector<unsigned char> bytes(g_variant_get_size(member.get()));
    g_variant_store(member.get(), bytes.data());
    return bytes;
}

// --- Buffers and lists that functions fill ---

template <std::size_t Size>
class Buffer {
public:
    Buffer() { memory_.fill(kUntouched); }

    unsigned char* Data() { return memory_.data() + kMargin; }
    char* Text() { return reinterpret_cast<char*>(Data()); }

    // Returns whether the buffer begins with these bytes, and everything else in it and around it is untouched.
    bool HoldsOnly(Bytes expected) const
    {
        Buffer other;
        std::ranges::copy(Part(expected, 0, Size), other.Data());
        return memory_ == other.memory_;
    }

private:
    static constexpr std::size_t kMargin = 16;
    static constexpr unsigned char kUntouched = 0xa5;

    std::array<unsigned char, kMargin + Size + kMargin> memory_;
};

// Returns whether the records from index first on are the first records in the bytes.
template <typename Record>
bool AreFrontOf(Bytes bytes, const std::vector<Record>& records, std::size_t first = 0)
{
    const auto size = (records.size() - first) * sizeof(Record);
    const auto* const begin = reinterpret_cast<const unsigned char*>(records.data() + first);
    return size <= bytes.size() && std::equal(begin, begin + size, bytes.begin());
}

// --- Readers: each calls a function, which gets the reply, and checks its results ---

using Reader = void (*)(const Answer& reply, std::uint8_t extra);

template <auto Call, int OtherType = -1, int Failed = -1>
void ReadInt(const Answer& reply, std::uint8_t /*extra*/)
{
    KIV_REQUIRE(Call() == IntIn(reply, OtherType, Failed));
    KIV_REQUIRE(IsOfType(reply, "(i)") || TakeErrorCount() > 0);
}

// Reads a mode. A failure and multi-room must read as surround; any other mode must read as itself.
template <auto Call>
void ReadMode(const Answer& reply, std::uint8_t /*extra*/)
{
    const int mode = IntIn(reply, -1, -1);
    KIV_REQUIRE(Call() == (mode == -1 || mode == NETSPKSETTING_MULTIROOM ? NETSPKSETTING_SURROUND : mode));
    KIV_REQUIRE(IsOfType(reply, "(i)") || TakeErrorCount() > 0);
}

template <auto Call>
void ReadBool(const Answer& reply, std::uint8_t /*extra*/)
{
    KIV_REQUIRE(Call() == BoolIn(reply));
    KIV_REQUIRE(IsOfType(reply, "(b)") || TakeErrorCount() > 0);
}

void CheckName(const Answer& reply, const std::string& otherwise)
{
    KIV_REQUIRE(Client().m_strClientName == StringIn(reply, otherwise));
    KIV_REQUIRE(IsOfType(reply, "(s)") || TakeErrorCount() > 0);
}

void Subscribe(const Answer& reply, std::uint8_t /*extra*/)
{
    KIV_REQUIRE(SubscribeNamServiceCallback("subscriber", [](int, void*, int) {}) == (reply.body ? 1 : 0));
    CheckName(reply, kOrdinaryId);
    UnsubscribeNamServiceCallback("subscriber");
    CheckName(reply, kOrdinaryId);
}

void RegisterForAtmos(const Answer& reply, std::uint8_t /*extra*/)
{
    const AtmosSupportCallback callback = [](int, void*) {};
    KIV_REQUIRE(register_atmos_support_cb(callback, nullptr) == 0);
    CheckName(reply, kOrdinaryId);
    KIV_REQUIRE(unregister_atmos_support_cb(callback) == (reply.body ? 0 : -1));
    KIV_REQUIRE(!reply.body || StringIn(reply, kOrdinaryId) == Client().m_strClientName);
}

void ReadClientId(const Answer& reply, std::uint8_t /*extra*/)
{
    const std::string before = Client().m_strClientName;
    const Answering answering(Question::kClientId, reply);
    KIV_REQUIRE(Client().m_GetProxyObj(false) == IsOfType(reply, "(s)"));
    CheckName(reply, reply.body ? "" : before);
}

void ReadOwner(const Answer& reply, std::uint8_t /*extra*/)
{
    const Answering answering(Question::kOwner, reply);
    const bool hasOwner = BoolIn(reply);
    KIV_REQUIRE(Client().m_IsExistedBusname("org.example") == hasOwner);
    KIV_REQUIRE(hasOwner || TakeErrorCount() > 0);
}

void ReadActiveSpeakers(const Answer& reply, std::uint8_t extra)
{
    constexpr std::size_t kTypeAt = NETSPK_LIST_NAME_LEN;
    constexpr std::size_t kCountAt = kTypeAt + NETSPK_SPEAKER_TYPE_LEN + 1;
    constexpr std::size_t kSpeakersAt = kCountAt + 4;
    const std::vector<unsigned char> payload = BytesIn(reply);
    const bool isComplete = payload.size() >= kCountAt;
    const int count = payload.size() >= kSpeakersAt ? IntAt(payload, kCountAt) : 0;
    const bool areAllThere =
        count > 0 && static_cast<std::uint64_t>(count) * sizeof(spk_info_s) <= payload.size() - kSpeakersAt;

    Buffer<NETSPK_LIST_NAME_LEN> name;
    Buffer<NETSPK_SPEAKER_TYPE_LEN + 1> type;
    // The speakers must be appended behind the elements of the list.
    const std::size_t before = extra % 3;
    std::vector<spk_info_s> list(before);
    KIV_REQUIRE(GetActiveNetSpkInfo(name.Text(), type.Text(), list) == (reply.body ? count : -1));

    KIV_REQUIRE(name.HoldsOnly(isComplete ? Part(payload, 0, kTypeAt) : Bytes()));
    KIV_REQUIRE(type.HoldsOnly(isComplete ? Part(payload, kTypeAt, kCountAt - kTypeAt) : Bytes()));
    KIV_REQUIRE(list.size() == before + (areAllThere ? static_cast<std::size_t>(count) : 0));
    KIV_REQUIRE(AreFrontOf(Behind(payload, kSpeakersAt), list, before));
}

// Reads a list whose old elements must be replaced.
template <typename Record, auto Call>
void ReadList(const Answer& reply, std::uint8_t extra, int ofNoArray)
{
    const std::vector<unsigned char> payload = BytesIn(reply);
    const auto count = payload.size() / sizeof(Record);
    std::vector<Record> list(extra % 3);
    const int result = Call(list);
    if (!reply.body) {
        KIV_REQUIRE(result == -1);
    } else {
        KIV_REQUIRE(result == (payload.empty() ? ofNoArray : static_cast<int>(count)));
    }
    KIV_REQUIRE(list.size() == count);
    KIV_REQUIRE(AreFrontOf(payload, list));
}

void ReadLists(const Answer& reply, std::uint8_t extra)
{
    ReadList<STNetSpkListInfo, GetNetSpkListInfo>(reply, extra, 0);
}

void ReadNodes(const Answer& reply, std::uint8_t extra)
{
    // Without bytes, the function returns -1 if the reply has a first member, and 0 if it has none.
    ReadList<CNetSpkNodeInfo, GetNetSpkNodeList>(reply, extra, FirstMember(reply) ? -1 : 0);
}

void ReadListsIntoArray(const Answer& reply, std::uint8_t /*extra*/)
{
    const std::vector<unsigned char> payload = BytesIn(reply);
    const auto count = payload.size() / sizeof(STNetSpkListInfo);
    const STNetSpkListInfo untouched{{0xa5}};
    std::vector array(count + 1, untouched);
    KIV_REQUIRE(getNetSpkListInfo(array.data()) == (reply.body ? static_cast<int>(count) : -1));
    KIV_REQUIRE(std::ranges::equal(array.back().opaque, untouched.opaque));
    array.pop_back();
    KIV_REQUIRE(AreFrontOf(payload, array));
}

void ReadSoundMode(const Answer& reply, std::uint8_t /*extra*/)
{
    const std::vector<unsigned char> payload = BytesIn(reply);
    const bool isComplete = payload.size() >= 34;
    const int length = isComplete ? IntAt(payload, 10) : 0;
    const bool isCorrupted = isComplete && payload[14] == 1 && length != 5 && length != 13;

    Buffer<KIV_SOUNDBAR_DEVICE_INFO_LEN> identity;
    Buffer<KIV_SOUND_MODE_LEN> mode;
    const int result = GetSoundbarSoundMode(identity.Data(), mode.Data());
    KIV_REQUIRE(result == (!reply.body ? -1 : isCorrupted ? 0 : length));
    KIV_REQUIRE(identity.HoldsOnly(isComplete ? Part(payload, 0, 10) : Bytes()));
    KIV_REQUIRE(mode.HoldsOnly(isComplete ? Part(payload, 14, 20) : Bytes()));
}

void ReadDeviceInfo(const Answer& reply, std::uint8_t /*extra*/)
{
    const std::vector<unsigned char> payload = BytesIn(reply);
    const bool isComplete = payload.size() >= 14;

    Buffer<KIV_SOUNDBAR_DEVICE_INFO_LEN> identity;
    const int result = GetSoundbarDeviceInfo(identity.Data());
    KIV_REQUIRE(result == (!reply.body ? -1 : isComplete ? IntAt(payload, 10) : 0));
    KIV_REQUIRE(identity.HoldsOnly(isComplete ? Part(payload, 0, 10) : Bytes()));
}

void ReadProtocolVersion(const Answer& reply, std::uint8_t extra)
{
    const std::vector<unsigned char> payload = BytesIn(reply);
    const int room = extra - 1; // may be negative
    const bool isComplete = payload.size() == 24 && room > 0;

    Buffer<KIV_SOUND_MODE_LEN> version;
    KIV_REQUIRE(GetSoundbarProtocolVersion(kMac, version.Data(), room) == (isComplete ? IntAt(payload, 0) : -1));
    const auto copied = static_cast<std::size_t>(std::clamp(room, 0, KIV_SOUND_MODE_LEN));
    KIV_REQUIRE(version.HoldsOnly(isComplete ? Part(payload, 4, copied) : Bytes()));
}

// Checks the question for the client id, which comes before every request.
void AskForIdFirst(const Answer& reply, std::uint8_t /*extra*/)
{
    {
        const Answering answering(Question::kClientId, reply);
        KIV_REQUIRE(StopNetworkSpeaker(0) == -1); // the request is answered with an empty tuple, or not sent
    }
    KIV_REQUIRE((Client().m_pConnection != nullptr) == IsOfType(reply, "(s)"));
    Connect();
}

std::vector<STNetSpkConfig>& Speakers()
{
    static std::vector<STNetSpkConfig> speakers(2);
    return speakers;
}

// Stored inputs have indices into this table, so a new reader must be added at its end.
constexpr Reader kReaders[] = {
    ReadClientId,
    ReadOwner,
    Subscribe,
    RegisterForAtmos,
    ReadBool<kiv_is_receiver_atmos>,
    ReadInt<[] { return NodeRemoveFromWatcher(1); }, -1, 0>,
    ReadInt<[] { return StartNetworkSpeaker(NETSPKSETTING_SURROUND, Speakers(), 0); }>,
    ReadInt<[] { return StopNetworkSpeaker(0); }>,
    ReadInt<DisableSurround>,
    ReadInt<GetSurroundChannelNumber>,
    ReadActiveSpeakers,
    ReadLists,
    ReadListsIntoArray,
    ReadInt<GetNetSpkListInfoNumber, 0>,
    ReadNodes,
    ReadInt<[] { return ConnectNetworkSpeakerByMobile(kMac, sizeof kMac); }>,
    ReadInt<[] { return Vireon_StartNetworkSpeakerByID("12345", 1, 2, 3); }, -1, 0>,
    ReadInt<[] { return StartNetworkSpeakerByID(1, 2, 3); }, -1, 0>,
    ReadInt<[] { return GetSpksConnectionTypeByID(1); }, -1, 0>,
    ReadInt<[] { return GetSpksConnectionType(&Speakers()); }>,
    ReadInt<[] { return AutoConnectNewSpeakers(kMac, 1); }>,
    ReadInt<[] { return AutoConnectNewSpeakersForOutdoor(kMac, 1); }>,
    ReadInt<[] { return ConnectToSpeakerForInfraLessSetup(1); }>,
    ReadInt<[] { return StartNetworkSpeakerGroupByMobile(1); }>,
    ReadBool<CanCancelTavrin>,
    ReadBool<PreSelectTavrin>,
    ReadBool<CanSelectTavrin>,
    ReadSoundMode,
    ReadDeviceInfo,
    ReadProtocolVersion,
    ReadBool<[] { return IsSoundbarSupportSoundMode(kMac); }>,
    ReadInt<[] { return SetTavrinUIMode(NETSPKSETTING_SURROUND); }>,
    ReadMode<GetTavrinUIMode>,
    ReadMode<GetNetSpkSettingMode>,
    ReadBool<CanEnterTavrinSettings>,
    ReadBool<FlagEnableNetworkSpeaker>,
    AskForIdFirst,
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const Reader read = kReaders[input.Byte() % std::size(kReaders)];
    const std::uint8_t extra = input.Byte();
    const Answer reply = ReadAnswer(input);
    const unsigned references = ConnectionReferences();
    const Answering answering(Question::kRequest, reply);
    TakeErrorCount();

    read(reply, extra);

    KIV_REQUIRE(ConnectionReferences() == references);
    return 0;
}
