#include "tools/kivctl/Arguments.h"
#include "tools/kivctl/CallWatch.h"
#include "tools/kivctl/Layout.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>

namespace kiv::ctl {
namespace {

// The most records that a reply can have. The array has room for all of them, because getNetSpkListInfo() gets no size.
constexpr size_t kMostLists = kMaxArrayLength / sizeof(STNetSpkListInfo);

// Buffers are filled with this byte before a call. No text has it, so if it is still there, the server sent nothing
// usable.
constexpr char kUntouched = '\xff';

// A kind of records, and why a server may have none of it.
struct Kind {
    const char* record;
    const char* whyNone;
};

constexpr Kind kLists = {
    kListRecord, "the server is connected with no speaker; kivctl list nodes shows those that it sees"};
constexpr Kind kNodes = {kNodeRecord, "the server sees no speaker; one that is switched on near the TV appears"};

struct ActiveSpeakers {
    std::array<char, NETSPK_LIST_NAME_LEN> name;
    std::array<char, NETSPK_SPEAKER_TYPE_LEN + 1> type;
    std::vector<spk_info_s> speakers;
};

struct ShowArguments {
    bool hex = false;
    std::string layout;
};

struct AllArguments {
    ShowArguments show;
    bool array = false;
};

template <typename Record>
Json RecordsJson(const std::vector<Record>& records)
{
    Json list = Json::array();
    for (const Record& record : records) {
        list.push_back(HexText(record.opaque, ""));
    }
    return list;
}

template <typename Record>
std::string RecordDumps(const std::vector<Record>& records, const char* what)
{
    std::string text;
    int number = 0;
    for (const Record& record : records) {
        text += fmt::format("\n\n{} {}\n{}", what, ++number, HexDump(record.opaque));
    }
    return text;
}

template <typename Record>
Json Decoded(const std::vector<Record>& records, const char* what, const Layout& layout)
{
    Json decoded = Json::array();
    for (const Record& record : records) {
        decoded.push_back(layout.Decode(what, record.opaque).front());
    }
    return decoded;
}

std::string Plural(const char* what)
{
    return what + std::string("s");
}

// Adds the fields of the records, or their bytes if no layout names the fields.
template <typename Record>
void AddRecords(Result& result, const std::vector<Record>& records, const char* what, const Layout& layout, bool hex)
{
    result.fields[Plural(what)] = RecordsJson(records);
    if (layout.Knows(what)) {
        const Json decoded = Decoded(records, what, layout);
        result.text += decoded.empty() ? "" : "\n\n" + RecordsText(decoded);
        result.fields["decoded"] = decoded;
    }
    if (hex || !layout.Knows(what)) {
        result.text += RecordDumps(records, what);
    }
}

void AddShow(CLI::App& app, ShowArguments& arguments)
{
    AddLayout(app, arguments.layout);
    app.add_flag("--hex", arguments.hex, "Also show the bytes of each record, as --json always does");
}

Result ShowActive(int result, const ActiveSpeakers& active, const Layout& layout, bool hex)
{
    const std::string name = FieldText(active.name);
    const std::string type = FieldText(active.type);
    const size_t received = active.speakers.size();
    const std::string count = std::cmp_equal(result, received) ? fmt::format("{}", result)
                                                               : fmt::format("{} announced, {} sent", result, received);
    const std::string hint = result == 0 ? " (none plays now)" : "";
    Result shown = Done(
        Table({{"name", name}, {"type", type}, {"speakers", count + hint}}),
        {{"result", result}, {"name", name}, {"type", type}});
    AddRecords(shown, active.speakers, kSpeakerRecord, layout, hex);
    return shown;
}

constexpr auto kActiveList = With<ShowArguments>(AddShow, [](const ShowArguments& arguments) {
    const Layout layout = LayoutOf(arguments.layout);
    ActiveSpeakers active;
    active.name.fill(kUntouched);
    active.type.fill(kUntouched);
    const int result = GetActiveNetSpkInfo(active.name.data(), active.type.data(), active.speakers);
    if (std::ranges::count(active.name, kUntouched) == NETSPK_LIST_NAME_LEN) {
        return Failed("GetActiveNetSpkInfo", result, kNothingUsable);
    }
    return ShowActive(result, active, layout, arguments.hex);
});

// Returns the length of the answer. The library reports bytes that are shorter than a record as an empty answer.
size_t BytesAnswered()
{
    const SeenCalls seen = CallsSeen();
    return seen.server ? seen.server->size : 0;
}

template <typename Record>
Result ShowRecords(
    const char* function, int result, const std::vector<Record>& records, const Kind& kind, const Layout& layout,
    bool hex)
{
    if (const size_t size = BytesAnswered(); records.empty() && size > 0) {
        const std::string reason =
            fmt::format("the server sent {} bytes, and a {} has {}", size, kind.record, sizeof(Record));
        return Failed(function, result, {reason.c_str(), "it has another version of the interface"});
    }
    const bool isOne = records.size() == 1;
    std::string text = fmt::format("{} {}", records.size(), isOne ? kind.record : Plural(kind.record));
    if (records.empty()) {
        text += fmt::format(": {}", kind.whyNone);
    } else if (!layout.Knows(kind.record)) {
        text += fmt::format(" of {} bytes; --layout names their fields", sizeof(Record));
    }
    Result shown = Done(text, {{"result", result}});
    AddRecords(shown, records, kind.record, layout, hex);
    return shown;
}

int GetListsByArray(std::vector<STNetSpkListInfo>& lists)
{
    const auto room = std::make_unique_for_overwrite<STNetSpkListInfo[]>(kMostLists);
    const int result = getNetSpkListInfo(room.get());
    lists.assign(room.get(), room.get() + std::max(result, 0));
    return result;
}

Result AskAll(const ShowArguments& show, bool byArray)
{
    const Layout layout = LayoutOf(show.layout);
    std::vector<STNetSpkListInfo> lists;
    const char* function = byArray ? "getNetSpkListInfo" : "GetNetSpkListInfo";
    const int result = byArray ? GetListsByArray(lists) : GetNetSpkListInfo(lists);
    if (result == -1 || CallFailed()) {
        return Failed(function, result, kNothingUsable);
    }
    return ShowRecords(function, result, lists, kLists, layout, show.hex);
}

constexpr auto kAllLists = With<AllArguments>(
    [](CLI::App& app, AllArguments& arguments) {
        AddShow(app, arguments.show);
        app.add_flag("--array", arguments.array, "Call getNetSpkListInfo, which fills a plain array");
    },
    [](const AllArguments& arguments) { return AskAll(arguments.show, arguments.array); });

constexpr auto kListsByVector = With<ShowArguments>(AddShow, [](const auto& show) { return AskAll(show, false); });
constexpr auto kListsByArray = With<ShowArguments>(AddShow, [](const auto& show) { return AskAll(show, true); });

constexpr auto kListCount = Plain([] {
    const int count = GetNetSpkListInfoNumber();
    return Answered("GetNetSpkListInfoNumber", count, count == 0 ? kLists.whyNone : "");
});

constexpr auto kAllNodes = With<ShowArguments>(AddShow, [](const ShowArguments& arguments) {
    const Layout layout = LayoutOf(arguments.layout);
    std::vector<CNetSpkNodeInfo> nodes;
    const char* function = "GetNetSpkNodeList";
    const int result = GetNetSpkNodeList(nodes);
    // CallFailed() is asked, because the library returns -1 for no nodes, too.
    return CallFailed() ? Failed(function, result)
                        : ShowRecords(function, result, nodes, kNodes, layout, arguments.hex);
});

} // namespace

std::vector<Command> ListCommands()
{
    return {
        Group(
            "list", "Show speaker lists and nodes",
            {
                {"active", "Ask for the active speaker group and its speakers", kActiveList},
                {"all", "Ask for all speaker lists", kAllLists},
                {"count", "Ask for the number of speaker lists", kListCount},
                {"nodes", "Ask for the speaker nodes of the network", kAllNodes},
            }),
    };
}

std::vector<Command> ListFunctions()
{
    return {
        {"GetActiveNetSpkInfo", "Ask for the active speaker group and its speakers", kActiveList},
        {"GetNetSpkListInfo", "Ask for all speaker lists", kListsByVector},
        {"getNetSpkListInfo", "Ask for all speaker lists, into a plain array", kListsByArray},
        {"GetNetSpkListInfoNumber", "Ask for the number of speaker lists", kListCount},
        {"GetNetSpkNodeList", "Ask for the speaker nodes of the network", kAllNodes},
    };
}

} // namespace kiv::ctl
