#include "simulator/Records.h"

#include <algorithm>

namespace kiv::simulator {

namespace {

constexpr std::size_t kConfigSize = 86;
constexpr std::size_t kIntSize = 4;
constexpr std::size_t kMacSize = std::tuple_size_v<Mac>;
constexpr std::size_t kIpSize = std::tuple_size_v<Ip>;
constexpr std::size_t kIdentitySize = kMacSize + kIpSize;

constexpr std::size_t kGroupNameSize = 128;
constexpr std::size_t kGroupTypeSize = 23;
constexpr std::size_t kSpeakerSize = 183;
constexpr std::size_t kListSize = 1086;
constexpr std::size_t kListSpeakers = 5;
constexpr std::size_t kListSpeakersEnd = kGroupNameSize + kGroupTypeSize + kIntSize + kListSpeakers * kSpeakerSize;
constexpr std::size_t kNodeSize = 134;

// Writes the 128 bytes with which all records of a single speaker begin.
Writer SpeakerFields(const Speaker& speaker)
{
    constexpr std::size_t kNameSize = 64;
    constexpr std::size_t kIdEnd = 72;
    constexpr std::size_t kTypeSize = 24;
    constexpr std::size_t kMacEnd = 104;

    return Writer()
        .Text(speaker.name, kNameSize)
        .Append(speaker.Id())
        .ToSize(kIdEnd)
        .Text(speaker.type, kTypeSize)
        .Append(speaker.mac)
        .ToSize(kMacEnd)
        .Append(speaker.ip)
        .Int32(speaker.node)
        .Int32(speaker.group)
        .Int32(speaker.volume)
        .Int32(speaker.channel)
        .Int32(static_cast<int>(speaker.connection));
}

Bytes WriteSpeaker(const Speaker& speaker)
{
    return SpeakerFields(speaker).Int32(speaker.active ? 1 : 0).ToSize(kSpeakerSize).Written();
}

std::string CommonType(const std::vector<Speaker>& speakers)
{
    if (speakers.empty()) {
        return {};
    }
    const std::string& type = speakers.front().type;
    const bool same = std::ranges::all_of(speakers, [&type](const Speaker& speaker) { return speaker.type == type; });
    return same ? type : "Mixed";
}

Writer GroupFields(const std::string& name, const std::vector<Speaker>& speakers)
{
    Writer writer;
    writer.Text(name, kGroupNameSize)
        .Text(CommonType(speakers), kGroupTypeSize)
        .Int32(static_cast<int>(speakers.size()));
    for (const Speaker& speaker : speakers) {
        writer.Append(WriteSpeaker(speaker));
    }
    return writer;
}

} // namespace

std::optional<std::vector<SpeakerConfig>> ReadConfigs(const Bytes& bytes)
{
    if (bytes.size() % kConfigSize != 0) {
        return std::nullopt;
    }
    std::vector<SpeakerConfig> configs;
    Reader reader(bytes);
    for (std::size_t count = bytes.size() / kConfigSize; count > 0; --count) {
        reader.Skip(kIntSize);
        const std::int32_t value = reader.Int32();
        configs.push_back({value, reader.Take<Mac>()});
        reader.Skip(kConfigSize - 2 * kIntSize - kMacSize);
    }
    return configs;
}

std::optional<std::vector<Mac>> ReadMacList(const Bytes& bytes)
{
    if (bytes.size() < kIntSize) {
        return std::nullopt;
    }
    Reader reader(bytes);
    const std::int64_t count = reader.Int32();
    if (count < 1 || static_cast<std::uint64_t>(count) * kMacSize != bytes.size() - kIntSize) {
        return std::nullopt;
    }
    std::vector<Mac> macs(static_cast<std::size_t>(count));
    std::ranges::generate(macs, [&reader] { return reader.Take<Mac>(); });
    return macs;
}

std::optional<Mac> ReadMac(const Bytes& bytes)
{
    if (bytes.size() != kMacSize) {
        return std::nullopt;
    }
    return Reader(bytes).Take<Mac>();
}

std::optional<Mac> ReadMobileMessage(const Bytes& bytes)
{
    if (bytes.size() < kIntSize + kMacSize) {
        return std::nullopt;
    }
    Reader reader(bytes);
    if (static_cast<std::uint32_t>(reader.Int32()) != bytes.size() - kIntSize) {
        return std::nullopt;
    }
    return reader.Take<Mac>();
}

std::optional<SoundbarSetting> ReadSoundbarSetting(const Bytes& bytes)
{
    if (bytes.size() < kIdentitySize) {
        return std::nullopt;
    }
    Reader reader(bytes);
    const Mac mac = reader.Take<Mac>();
    reader.Skip(kIpSize);
    return SoundbarSetting{mac, reader.Rest()};
}

Bytes WriteActiveGroup(const std::string& name, const std::vector<Speaker>& speakers)
{
    return GroupFields(name, speakers).Written();
}

Bytes WriteList(const SpeakerGroup& group)
{
    const auto playing = std::ranges::count(group.speakers, true, &Speaker::active);
    return GroupFields(group.name, group.speakers)
        .ToSize(kListSpeakersEnd)
        .Int32(group.number)
        .Int32(static_cast<int>(playing))
        .ToSize(kListSize)
        .Written();
}

Bytes WriteNode(const Speaker& speaker)
{
    return SpeakerFields(speaker).Int32(speaker.watched ? 1 : 0).ToSize(kNodeSize).Written();
}

Bytes WriteVolume(const Speaker& speaker)
{
    return WriteIdentity(speaker.mac, speaker.ip, speaker.volume);
}

Bytes WriteIdentity(const Mac& mac, const Ip& ip, std::int32_t value)
{
    return Writer().Append(mac).Append(ip).Int32(value).Written();
}

} // namespace kiv::simulator
