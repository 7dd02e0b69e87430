#include "tools/kivctl/Layout.h"

#include "simulator/Glib.h"
#include "tools/Harmless.h"
#include "tools/kivctl/Arguments.h"
#include "tools/kivctl/Command.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <glib.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iterator>
#include <set>
#include <utility>

namespace kiv::ctl {
namespace {

constexpr const char* kVariable = "KIV_LAYOUT";
constexpr size_t kMaxFileSize = kMebibyte;
constexpr size_t kMaxRecordSize = 65536;
constexpr const char* kRecords = "records";

const std::map<std::string, size_t> kLibrarysSizes = {
    {kSpeakerRecord, sizeof(spk_info_s)},
    {kListRecord, sizeof(STNetSpkListInfo)},
    {kNodeRecord, sizeof(CNetSpkNodeInfo)}};

struct Integer {
    size_t size;
    bool isSigned;
};

const std::map<std::string, Integer> kIntegers = {{"u8", {1, false}}, {"i8", {1, true}},   {"u16", {2, false}},
                                                  {"i16", {2, true}}, {"u32", {4, false}}, {"i32", {4, true}}};
const std::map<std::string, size_t> kFixedSizes = {{"mac", NETSPK_MAC_LEN}, {"ipv4", NETSPK_IP_LEN}};

// A value of the file, and its place there, such as "records.node.fields[2]".
struct Part {
    const Json& json;
    std::string place;
};

[[noreturn]] void Refuse(const std::string& place, const std::string& reason)
{
    throw BadArguments(fmt::format("{}{}{}", place, place.empty() ? "" : ": ", reason));
}

void CheckObject(const Part& part, const std::set<std::string>& keys)
{
    if (!part.json.is_object()) {
        Refuse(part.place, fmt::format("must be an object, got {}", Shortened(part.json)));
    }
    for (const auto& member : part.json.items()) {
        if (!keys.empty() && !keys.contains(member.key())) {
            Refuse(part.place, fmt::format("unknown key \"{}\"; known are {}", member.key(), fmt::join(keys, ", ")));
        }
    }
}

Part Member(const Part& object, const std::string& key)
{
    const auto found = object.json.find(key);
    if (found == object.json.end()) {
        Refuse(object.place, fmt::format("\"{}\" is missing", key));
    }
    return {*found, fmt::format("{}{}{}", object.place, object.place.empty() ? "" : ".", key)};
}

std::string ReadText(const Part& part)
{
    if (!part.json.is_string() || part.json.get_ref<const std::string&>().empty()) {
        Refuse(part.place, fmt::format("must be a text that is not empty, got {}", Shortened(part.json)));
    }
    return part.json.get<std::string>();
}

std::string ReadOptionalText(const Part& object, const char* key)
{
    return object.json.contains(key) ? ReadText(Member(object, key)) : std::string();
}

size_t ReadSize(const Part& part, size_t least)
{
    const bool fits = part.json.is_number_unsigned() && part.json.get<uint64_t>() >= least &&
                      part.json.get<uint64_t>() <= kMaxRecordSize;
    if (!fits) {
        Refuse(
            part.place,
            fmt::format("must be an integer from {} to {}, got {}", least, kMaxRecordSize, Shortened(part.json)));
    }
    return part.json.get<size_t>();
}

using RecordSizes = std::map<std::string, size_t>;

// Reads the sizes of all records first, because a record may be mentioned before it is described.
RecordSizes ReadSizes(const Part& records)
{
    CheckObject(records, {});
    RecordSizes sizes;
    for (const auto& member : records.json.items()) {
        const Part record = Member(records, member.key());
        CheckObject(record, {"size", "fields"});
        const Part size = Member(record, "size");
        const size_t bytes = ReadSize(size, 1);
        const auto librarys = kLibrarysSizes.find(member.key());
        if (librarys != kLibrarysSizes.end() && librarys->second != bytes) {
            Refuse(
                size.place, fmt::format(
                                "must be {} as in the library, got {}; records that the library does not return need "
                                "another name",
                                librarys->second, bytes));
        }
        sizes[member.key()] = bytes;
    }
    return sizes;
}

std::string KnownTypes()
{
    std::string types = "text, bytes, records";
    for (const auto& [name, size] : kFixedSizes) {
        types += ", " + name;
    }
    for (const auto& [name, integer] : kIntegers) {
        types += ", " + name;
    }
    return types;
}

std::string ReadRecordName(const Part& part, const RecordSizes& sizes)
{
    std::string name = ReadText(part);
    if (!sizes.contains(name)) {
        Refuse(part.place, fmt::format("must be the name of a record in this file, got \"{}\"", name));
    }
    return name;
}

// Reads the other keys that the field's type needs. Returns the field's size.
uint64_t ReadType(const Part& part, Layout::Field& field, const RecordSizes& sizes)
{
    const Part type = Member(part, "type");
    field.type = ReadText(type);
    if (field.type == "text" || field.type == "bytes") {
        CheckObject(part, {"name", "offset", "type", "length"});
        return ReadSize(Member(part, "length"), 1);
    }
    if (field.type == kRecords) {
        CheckObject(part, {"name", "offset", "type", "record", "count", "filled"});
        field.record = ReadRecordName(Member(part, "record"), sizes);
        field.filled = ReadOptionalText(part, "filled");
        return uint64_t{ReadSize(Member(part, "count"), 1)} * sizes.at(field.record);
    }
    CheckObject(part, {"name", "offset", "type"});
    if (const auto integer = kIntegers.find(field.type); integer != kIntegers.end()) {
        return integer->second.size;
    }
    if (const auto fixed = kFixedSizes.find(field.type); fixed != kFixedSizes.end()) {
        return fixed->second;
    }
    Refuse(type.place, fmt::format("must be one of {}; got \"{}\"", KnownTypes(), field.type));
}

Layout::Field ReadField(const Part& part, size_t recordSize, const RecordSizes& sizes)
{
    CheckObject(part, {"name", "offset", "type", "length", "record", "count", "filled"});
    Layout::Field field;
    field.name = ReadText(Member(part, "name"));
    field.offset = ReadSize(Member(part, "offset"), 0);
    const uint64_t size = ReadType(part, field, sizes);
    if (field.offset + size > recordSize) {
        Refuse(
            part.place, fmt::format(
                            "must lie within the {} bytes of its record, but begins at {} and has {}", recordSize,
                            field.offset, size));
    }
    field.size = static_cast<size_t>(size);
    return field;
}

const Layout::Field* FindField(const std::vector<Layout::Field>& fields, const std::string& name)
{
    const auto found = std::ranges::find(fields, name, &Layout::Field::name);
    return found == fields.end() ? nullptr : &*found;
}

Layout::Record ReadRecord(const Part& part, const RecordSizes& sizes)
{
    Layout::Record record;
    record.size = ReadSize(Member(part, "size"), 1);
    const Part fields = Member(part, "fields");
    if (!fields.json.is_array()) {
        Refuse(fields.place, fmt::format("must be an array, got {}", Shortened(fields.json)));
    }
    for (const Json& json : fields.json) {
        const Part place{json, fmt::format("{}[{}]", fields.place, record.fields.size())};
        Layout::Field field = ReadField(place, record.size, sizes);
        if (FindField(record.fields, field.name) != nullptr) {
            Refuse(place.place, fmt::format("the record has a field \"{}\" already", field.name));
        }
        record.fields.push_back(std::move(field));
    }
    for (const Layout::Field& field : record.fields) {
        const Layout::Field* filled = FindField(record.fields, field.filled);
        if (!field.filled.empty() && (filled == nullptr || !kIntegers.contains(filled->type))) {
            Refuse(
                fields.place, fmt::format(
                                  R"("filled" of "{}" must be the name of an integer field of this record, got "{}")",
                                  field.name, field.filled));
        }
    }
    return record;
}

using RecordMap = std::map<std::string, Layout::Record>;

void CheckNesting(const RecordMap& records, const std::string& name, std::set<std::string> outer)
{
    if (!outer.insert(name).second) {
        Refuse(fmt::format("{}.{}", kRecords, name), "the record contains itself");
    }
    for (const Layout::Field& field : records.at(name).fields) {
        if (field.type == kRecords) {
            CheckNesting(records, field.record, outer);
        }
    }
}

uint32_t ReadEventId(const std::string& text, const std::string& place)
{
    uint32_t id = 0;
    const char* end = text.data() + text.size();
    constexpr size_t kIdSize = 10; // "0x" and eight digits
    const bool fits = text.size() == kIdSize && text.starts_with("0x");
    const auto read = std::from_chars(text.data() + (fits ? 2 : 0), end, id, 16);
    if (!fits || read.ec != std::errc() || read.ptr != end) {
        Refuse(place, fmt::format("the id of an event must be 0x and eight hex digits, got \"{}\"", text));
    }
    return id;
}

// Throws BadArguments unless the record of the volume event has a speaker and its volume.
void CheckVolume(const Layout::Record& record, const std::string& place)
{
    const Layout::Field* mac = FindField(record.fields, "mac");
    const Layout::Field* volume = FindField(record.fields, "volume");
    if (mac == nullptr || mac->type != "mac" || volume == nullptr || !kIntegers.contains(volume->type)) {
        Refuse(place, R"(the record of the event "volume" must have a MAC address "mac" and an integer "volume")");
    }
}

int64_t DecodeInteger(const Integer& integer, Bytes bytes)
{
    uint64_t bits = 0;
    for (size_t i = integer.size; i > 0; --i) {
        bits = bits << 8U | bytes[i - 1];
    }
    const uint64_t sign = uint64_t{1} << (8 * integer.size - 1);
    const bool negative = integer.isSigned && (bits & sign) != 0;
    return static_cast<int64_t>(bits) - (negative ? static_cast<int64_t>(2 * sign) : 0);
}

std::string DecodeText(Bytes bytes)
{
    const std::string text = FieldText({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    return simulator::TakeText(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
}

std::string ValueText(const Json& value)
{
    return value.is_string() ? Harmless(value.get<std::string>()) : value.dump();
}

bool IsArray(const Json& value)
{
    return value.is_array();
}

std::string Indented(const std::string& text)
{
    std::string indented = "  ";
    for (const char character : text) {
        indented += character;
        indented += character == '\n' ? "  " : "";
    }
    return indented;
}

// Returns the values of records that contain no records, in columns.
std::string ColumnsText(const Json& records)
{
    std::vector<std::vector<std::string>> rows(1);
    for (const auto& member : records.front().items()) {
        rows.front().push_back(Harmless(member.key()));
    }
    for (const Json& record : records) {
        auto& row = rows.emplace_back();
        std::ranges::transform(record, std::back_inserter(row), ValueText);
    }
    return Columns(rows);
}

std::string OneRecordText(const Json& record)
{
    std::vector<std::pair<std::string, std::string>> rows;
    std::string parts;
    for (const auto& member : record.items()) {
        if (member.value().is_array()) {
            const bool none = member.value().empty();
            parts += fmt::format("\n{}:{}", Harmless(member.key()), none ? " none" : "\n");
            parts += none ? "" : Indented(RecordsText(member.value()));
        } else {
            rows.emplace_back(member.key(), ValueText(member.value()));
        }
    }
    return Table(rows) + parts;
}

} // namespace

Layout::Layout(const std::string& path)
{
    const std::string text = ReadFile(path, kMaxFileSize);
    try {
        const Json json = ParseJson(text);
        const Part file{json, ""};
        CheckObject(file, {"description", kRecords, "events"});
        ReadOptionalText(file, "description");
        const Part records = Member(file, kRecords);
        const RecordSizes sizes = ReadSizes(records);
        for (const auto& [name, size] : sizes) {
            records_[name] = ReadRecord(Member(records, name), sizes);
        }
        for (const auto& [name, size] : sizes) {
            CheckNesting(records_, name, {});
        }
        if (!json.contains("events")) {
            return;
        }
        const Part events = Member(file, "events");
        CheckObject(events, {});
        for (const auto& member : events.json.items()) {
            const Part event = Member(events, member.key());
            CheckObject(event, {"name", "record"});
            const std::string name = ReadOptionalText(event, "name");
            const std::string record = ReadRecordName(Member(event, "record"), sizes);
            if (name == kVolumeEvent) {
                CheckVolume(records_.at(record), event.place);
            }
            events_[ReadEventId(member.key(), events.place)] = {name, record};
        }
    } catch (const BadArguments& error) {
        throw BadArguments(fmt::format("{}: {}", path, error.what()));
    }
}

const Layout::Event* Layout::FindEvent(int id) const
{
    const auto found = events_.find(static_cast<uint32_t>(id));
    return found == events_.end() ? nullptr : &found->second;
}

bool Layout::HasEvent(const std::string& name) const
{
    return std::ranges::any_of(events_, [&name](const auto& event) { return event.second.name == name; });
}

Json Layout::Decode(const std::string& record, Bytes bytes) const
{
    const Record& layout = records_.at(record);
    Json decoded = Json::array();
    for (size_t at = 0; at + layout.size <= bytes.size(); at += layout.size) {
        decoded.push_back(DecodeOne(layout, bytes.subspan(at, layout.size)));
    }
    return decoded;
}

Json Layout::DecodeOne(const Record& record, Bytes bytes) const
{
    Json object = Json::object();
    for (const Field& field : record.fields) {
        object[field.name] = DecodeField(record, field, bytes);
    }
    return object;
}

Json Layout::DecodeField(const Record& record, const Field& field, Bytes bytes) const
{
    const Bytes value = bytes.subspan(field.offset, field.size);
    if (const auto integer = kIntegers.find(field.type); integer != kIntegers.end()) {
        return DecodeInteger(integer->second, value);
    }
    if (field.type == "text") {
        return DecodeText(value);
    }
    if (field.type == "bytes") {
        return HexText(value, "");
    }
    if (field.type == "mac") {
        return HexText(value, ":");
    }
    if (field.type == "ipv4") {
        return IpText(value);
    }
    Bytes filled = value;
    if (const Field* number = FindField(record.fields, field.filled)) {
        const int64_t count = std::max<int64_t>(DecodeField(record, *number, bytes).get<int64_t>(), 0);
        const auto length = static_cast<uint64_t>(count) * records_.at(field.record).size;
        filled = value.first(static_cast<size_t>(std::min<uint64_t>(length, value.size())));
    }
    return Decode(field.record, filled);
}

void AddLayout(CLI::App& app, std::string& path)
{
    app.add_option("--layout", path, "File that names the fields of the server's records (default: that of KIV_LAYOUT)")
        ->type_name("FILE");
}

Layout LayoutOf(const std::string& path)
{
    if (!path.empty()) {
        return Layout(path);
    }
    const char* variable = std::getenv(kVariable);
    if (variable == nullptr || *variable == '\0') {
        return {};
    }
    try {
        return Layout(variable);
    } catch (const BadArguments& error) {
        throw BadArguments(fmt::format("{}: {}", kVariable, error.what()));
    }
}

std::string RecordsText(const Json& records)
{
    if (std::ranges::none_of(records.front(), IsArray)) {
        return ColumnsText(records);
    }
    std::string text;
    for (const Json& record : records) {
        text += (text.empty() ? "" : "\n\n") + OneRecordText(record);
    }
    return text;
}

std::string RecordsLine(const Json& records)
{
    std::string line;
    for (const Json& record : records) {
        line += line.empty() ? "" : "; ";
        const char* separator = "";
        for (const auto& member : record.items()) {
            line += fmt::format("{}{} {}", separator, Harmless(member.key()), ValueText(member.value()));
            separator = ", ";
        }
    }
    return line;
}

} // namespace kiv::ctl
