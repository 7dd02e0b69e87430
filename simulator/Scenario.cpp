#include "simulator/Scenario.h"

#include "simulator/BusObject.h"
#include "simulator/ClientLink.h"
#include "simulator/Events.h"
#include "simulator/Faults.h"
#include "simulator/Feature.h"
#include "simulator/Interfaces.h"
#include "simulator/JsonKeys.h"
#include "simulator/Recording.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <memory>

namespace kiv::simulator {

namespace {

constexpr std::int64_t kLongestTime = std::numeric_limits<std::int32_t>::max();

int ReadInt(const JsonNode& node)
{
    return static_cast<int>(
        node.Integer(std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

std::chrono::milliseconds ReadTime(const JsonNode& node, std::int64_t least = 0)
{
    return std::chrono::milliseconds(node.Integer(least, kLongestTime));
}

// Returns the value of a text. The parser returns nothing for a text that is not what was expected.
template <typename Value>
Value ReadParsed(const JsonNode& node, std::optional<Value> (*parse)(std::string_view), const char* expected)
{
    const auto value = parse(node.Text());
    if (!value) {
        node.FailExpected(expected);
    }
    return *value;
}

Bytes ReadHex(const JsonNode& node)
{
    return ReadParsed(node, &ParseHex, R"(bytes in hexadecimal such as "01 ff")");
}

Mac ReadMacAddress(const JsonNode& node)
{
    return ReadParsed(node, &ParseMac, R"(a MAC address such as "02:4b:49:56:00:01")");
}

Ip ReadIpAddress(const JsonNode& node)
{
    return ReadParsed(node, &ParseIp, R"(an IP address such as "192.168.0.21")");
}

std::string ReadWord(const JsonNode& node, const std::vector<std::string>& allowed)
{
    std::string word = node.Text();
    if (std::ranges::find(allowed, word) == allowed.end()) {
        node.FailExpected(fmt::format("one of {}", fmt::join(allowed, ", ")));
    }
    return word;
}

Connection ReadConnection(const JsonNode& node)
{
    const std::string word = ReadWord(node, {"none", "network", "direct"});
    return word == "none" ? Connection::kNone : word == "network" ? Connection::kNetwork : Connection::kDirect;
}

struct GroupedSpeaker : Speaker {
    GroupedSpeaker() : Speaker{0, 0, "", "Shelf", {}, {}, 20, Connection::kNetwork} {}

    std::string groupName;
    std::optional<Ip> ownIp;
};

const Keys<GroupedSpeaker>& SpeakerKeys()
{
    static const Keys<GroupedSpeaker> kKeys = {
        {"name", Into(&Speaker::name, &JsonNode::Text)},
        {"mac", Into(&Speaker::mac, ReadMacAddress)},
        {"group", Into(&GroupedSpeaker::groupName, &JsonNode::Text)},
        {"type", Into(&Speaker::type, &JsonNode::Text)},
        {"ip", Into(&GroupedSpeaker::ownIp, ReadIpAddress)},
        {"volume", Into(&Speaker::volume, [](const JsonNode& node) { return static_cast<int>(node.Integer(0, 100)); })},
        {"connection", Into(&Speaker::connection, ReadConnection)},
        {"channel", Into(&Speaker::channel, ReadInt)},
        {"active", Into(&Speaker::active, &JsonNode::Flag)},
        {"watched", Into(&Speaker::watched, &JsonNode::Flag)},
    };
    return kKeys;
}

// Returns the number of the group. Adds the group if it is new.
int GroupNumber(std::vector<std::string>& names, const std::string& name)
{
    const auto found = std::ranges::find(names, name);
    const auto index = found - names.begin();
    if (found == names.end()) {
        names.push_back(name);
    }
    return static_cast<int>(index) + 1;
}

SpeakerSet ReadSpeakers(const JsonNode& node)
{
    SpeakerSet set;
    for (const JsonNode& item : node.Items()) {
        auto speaker = Read(item, SpeakerKeys(), {"name", "mac"});
        if (std::ranges::find(set.speakers, speaker.mac, &Speaker::mac) != set.speakers.end()) {
            item.Fail(fmt::format("another speaker has the MAC address {}", Text(speaker.mac)));
        }
        if (speaker.active && !speaker.IsConnected()) {
            item.Fail("a speaker that is not connected cannot be active");
        }
        speaker.node = static_cast<int>(set.speakers.size()) + 1;
        speaker.group = GroupNumber(set.groupNames, speaker.groupName.empty() ? speaker.name : speaker.groupName);
        speaker.ip = speaker.ownIp.value_or(DefaultIp(speaker.node));
        set.speakers.push_back(speaker);
    }
    return set;
}

Bytes ReadSoundModeData(const JsonNode& node)
{
    Bytes data = ReadHex(node);
    if (data.size() > Soundbars::kMostSoundModeData) {
        node.FailExpected(fmt::format("at most {} bytes", Soundbars::kMostSoundModeData));
    }
    return data;
}

const Keys<Soundbar>& SoundbarKeys()
{
    static const Keys<Soundbar> kKeys = {
        {"name", Into(&Soundbar::name, &JsonNode::Text)},
        {"mac", Into(&Soundbar::mac, ReadMacAddress)},
        {"ip", Into(&Soundbar::ip, ReadIpAddress)},
        {"soundMode", Into(&Soundbar::soundMode, ReadSoundModeData)},
        {"supportsSoundMode", Into(&Soundbar::supportsSoundMode, ReadInt)},
        {"protocolVersion", Into(&Soundbar::protocolVersion, ReadInt)},
    };
    return kKeys;
}

std::vector<Soundbar> ReadSoundbars(const JsonNode& node)
{
    std::vector<Soundbar> soundbars;
    for (const JsonNode& item : node.Items()) {
        soundbars.push_back(Read(item, SoundbarKeys(), {"name", "mac", "ip"}));
    }
    return soundbars;
}

const Keys<HomeChange>& HomeKeys()
{
    static const Keys<HomeChange> kKeys = {
        {"speakers", Into(&HomeChange::speakers, ReadSpeakers)},
        {"soundbars", Into(&HomeChange::soundbars, ReadSoundbars)},
        {"settingMode", Into(&HomeChange::settingMode, ReadInt)},
        {"tavrinUiMode", Into(&HomeChange::tavrinUiMode, ReadInt)},
        {"surround", Into(&HomeChange::surround, &JsonNode::Flag)},
        {"receiverHasAtmos", Into(&HomeChange::receiverHasAtmos, &JsonNode::Flag)},
    };
    return kKeys;
}

HomeChange ReadHome(const JsonNode& node)
{
    return Read(node, HomeKeys());
}

// Returns the value of a fault's key in the type that the bus method takes.
GVariant* FaultValue(const JsonNode& node, const std::string& type)
{
    if (type == "b") {
        return g_variant_new_boolean(node.Flag() ? TRUE : FALSE);
    }
    if (type == "u") {
        return g_variant_new_uint32(static_cast<std::uint32_t>(node.Integer(0, kLongestTime)));
    }
    if (type == "ay") {
        return NewByteArray(ReadHex(node));
    }
    return g_variant_new_string(node.Text().c_str());
}

std::map<std::string, Variant> ReadFaults(const JsonNode& node)
{
    // The faults are set in a trial object, which throws if one is not valid.
    Faults trial{Interface(kServerXml)};
    std::map<std::string, Variant> faults;
    for (const auto& [method, member] : node.Members()) {
        const Variant fault = member.IsNull() ? nullptr : ReadFault(member);
        try {
            if (fault == nullptr) {
                trial.Clear(method);
            } else {
                trial.Set(method, fault.get());
            }
        } catch (const BusError& error) {
            member.Fail(error.what());
        }
        faults.emplace(method, fault);
    }
    return faults;
}

std::int32_t ReadEventId(const JsonNode& node)
{
    if (!node.IsText()) {
        return ReadInt(node);
    }
    const auto id = ParseEventId(node.Text());
    if (!id) {
        node.FailExpected("a number, or a text in hexadecimal such as \"0x02020028\"");
    }
    return *id;
}

struct EventEntry {
    std::string client;
    std::optional<std::int32_t> id;
    Bytes data;
    std::optional<Bytes> payload;
};

const Keys<EventEntry>& EventKeys()
{
    static const Keys<EventEntry> kKeys = {
        {"client", Into(
                       &EventEntry::client,
                       [](const JsonNode& node) {
                           if (!ClientLink::IsUsable(node.Text())) {
                               node.FailExpected(
                                   "letters, digits and '_', as a client's id must be part of a D-Bus name");
                           }
                           return node.Text();
                       })},
        {"id", Into(&EventEntry::id, ReadEventId)},
        {"data", Into(&EventEntry::data, ReadHex)},
        {"payload", Into(&EventEntry::payload, ReadHex)},
    };
    return kKeys;
}

std::vector<EventPush> ReadEvents(const JsonNode& node)
{
    std::vector<EventPush> events;
    for (const JsonNode& item : node.Items()) {
        const auto entry = Read(item, EventKeys());
        if (entry.id.has_value() == entry.payload.has_value() || (entry.payload && !entry.data.empty())) {
            item.FailExpected(R"(an event with either "id" and perhaps "data", or "payload")");
        }
        const Variant payload = entry.payload ? Own(NewByteArray(*entry.payload)) : EventPayload(*entry.id, entry.data);
        events.push_back({entry.client, payload});
    }
    return events;
}

// Adds the keys that every object with a change has.
template <typename Target>
void AddChangeKeys(Keys<Target>& keys, Change Target::*change)
{
    const Keys<Change> changeKeys = {
        {"clientId", Into(&Change::clientId, &JsonNode::Text)},
        {"feature", Into(&Change::feature, [](const JsonNode& node) { return ReadWord(node, kFeatures); })},
        {"home", Into(&Change::home, ReadHome)},
        {"faults", Into(&Change::faults, ReadFaults)},
        {"events", Into(&Change::events, ReadEvents)},
        {"away", Into(&Change::away, [](const JsonNode& node) { return ReadTime(node); })},
        {"exit", Into(&Change::exit, &JsonNode::Flag)},
    };
    for (const auto& [name, read] : changeKeys) {
        keys.emplace(name, [change, read = read](Target& target, const JsonNode& node) { read(target.*change, node); });
    }
}

const Keys<Appointment>& AppointmentKeys()
{
    static const Keys<Appointment> kKeys = [] {
        Keys<Appointment> keys = {
            {"at", Into(&Appointment::at, [](const JsonNode& node) { return ReadTime(node); })},
            {"every", Into(&Appointment::every, [](const JsonNode& node) { return ReadTime(node, 1); })},
        };
        AddChangeKeys(keys, &Appointment::change);
        return keys;
    }();
    return kKeys;
}

std::vector<Appointment> ReadTimetable(const JsonNode& node)
{
    std::vector<Appointment> timetable;
    for (const JsonNode& item : node.Items()) {
        timetable.push_back(Read(item, AppointmentKeys(), {"at"}));
    }
    return timetable;
}

const Keys<Scenario>& RootKeys()
{
    static const Keys<Scenario> kKeys = [] {
        Keys<Scenario> keys = {
            // Editors use this key. It is checked and ignored.
            {"$schema", [](Scenario&, const JsonNode& node) { node.Text(); }},
            {"description", Into(&Scenario::description, &JsonNode::Text)},
            {"timetable", Into(&Scenario::timetable, ReadTimetable)},
        };
        AddChangeKeys(keys, &Scenario::now);
        return keys;
    }();
    return kKeys;
}

void RefuseAtStart(const std::string& name, const std::string& text, const std::string& key, const char* reason)
{
    for (const auto& [present, member] : JsonNode::Parse(name, text).Members()) {
        if (present == key) {
            member.Fail(fmt::format(
                R"({}; put "{}" into the timetable, or give the scenario to "kiv-sandbox control apply")", reason,
                key));
        }
    }
}

} // namespace

Variant ReadFault(const JsonNode& node)
{
    const std::map<std::string, std::string> types = Faults::Keys();
    const std::unique_ptr<GVariantDict, link::Releaser<g_variant_dict_unref>> description(g_variant_dict_new(nullptr));
    for (const auto& [name, member] : node.Members()) {
        const auto type = types.find(name);
        if (type == types.end()) {
            FailUnknown(member, name, NamesOf(types));
        }
        g_variant_dict_insert_value(description.get(), name.c_str(), FaultValue(member, type->second));
    }
    return Own(g_variant_dict_end(description.get()));
}

std::optional<std::int32_t> ParseEventId(const std::string& text)
{
    std::uint32_t id = 0;
    const char* const end = text.data() + text.size();
    const bool isHex = text.starts_with("0x") && text.size() <= 10;
    const auto result = isHex ? std::from_chars(text.data() + 2, end, id, 16) : std::from_chars_result{};
    return isHex && result.ec == std::errc() && result.ptr == end ? std::optional(static_cast<std::int32_t>(id))
                                                                  : std::nullopt;
}

Scenario ReadScenario(const std::string& name, const std::string& text)
{
    if (IsRecording(text)) {
        throw FileError(name + ":1: must be a scenario, one JSON object, got a recording, as --record writes it");
    }
    return Read(JsonNode::Parse(name, text), RootKeys());
}

Scenario ReadFirstScenario(const std::string& name, const std::string& text)
{
    Scenario scenario = ReadScenario(name, text);
    if (!scenario.now.events.empty()) {
        RefuseAtStart(name, text, "events", "there is no client yet when the server starts");
    }
    if (scenario.now.exit) {
        RefuseAtStart(name, text, "exit", "a server cannot end while it starts");
    }
    return scenario;
}

std::map<std::string, std::set<std::string>> ScenarioKeys()
{
    return {
        {"scenario", NamesOf(RootKeys())},     {"appointment", NamesOf(AppointmentKeys())},
        {"home", NamesOf(HomeKeys())},         {"speaker", NamesOf(SpeakerKeys())},
        {"soundbar", NamesOf(SoundbarKeys())}, {"event", NamesOf(EventKeys())},
        {"fault", NamesOf(Faults::Keys())},
    };
}

} // namespace kiv::simulator
