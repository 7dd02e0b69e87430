#include "Arguments.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>

namespace kiv::ctl {
namespace {

// The library cannot be told how much room there is. No reply has more records than these.
constexpr size_t kMostLists = kMaxArrayLength / sizeof(STNetSpkListInfo);

// No text consists of such bytes: where they are still there, the server sent nothing usable.
constexpr char kUntouched = '\xff';

struct ActiveSpeakers {
    std::array<char, NETSPK_LIST_NAME_LEN> name;
    std::array<char, NETSPK_SPEAKER_TYPE_LEN + 1> type;
    std::vector<spk_info_s> speakers;
};

struct AllArguments {
    bool hex = false;
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

// Records of which nothing is known but their length.
template <typename Record>
Result OpaqueRecords(const std::vector<Record>& records, const char* what, bool hex)
{
    std::string text =
        fmt::format("{} {}{} of {} bytes", records.size(), what, records.size() == 1 ? "" : "s", sizeof(Record));
    if (hex) {
        text += RecordDumps(records, what);
    }
    return Done(text, {{"result", records.size()}, {what + std::string("s"), RecordsJson(records)}});
}

void AddHex(CLI::App& app, bool& hex)
{
    app.add_flag("--hex", hex, "Show the bytes of each record (with --json they always are)");
}

Result ShowActive(int result, const ActiveSpeakers& active, bool hex)
{
    const std::string name = FieldText(active.name);
    const std::string type = FieldText(active.type);
    const size_t received = active.speakers.size();
    const std::string count = std::cmp_equal(result, received) ? fmt::format("{}", result)
                                                               : fmt::format("{} announced, {} sent", result, received);
    std::string text = Table({{"name", name}, {"type", type}, {"speakers", count}});
    if (hex) {
        text += RecordDumps(active.speakers, "speaker");
    }
    return Done(text, {{"result", result}, {"name", name}, {"type", type}, {"speakers", RecordsJson(active.speakers)}});
}

Action Active(CLI::App& app)
{
    const auto hex = std::make_shared<bool>(false);
    AddHex(app, *hex);
    return [hex](const Output&) {
        ActiveSpeakers active;
        active.name.fill(kUntouched);
        active.type.fill(kUntouched);
        const int result = GetActiveNetSpkInfo(active.name.data(), active.type.data(), active.speakers);
        if (std::ranges::count(active.name, kUntouched) == NETSPK_LIST_NAME_LEN) {
            return Failed("GetActiveNetSpkInfo", result, "the request failed, or the server sent nothing usable");
        }
        return ShowActive(result, active, *hex);
    };
}

int GetListsByArray(std::vector<STNetSpkListInfo>& lists)
{
    const auto room = std::make_unique_for_overwrite<STNetSpkListInfo[]>(kMostLists);
    const int result = getNetSpkListInfo(room.get());
    lists.assign(room.get(), room.get() + std::max(result, 0));
    return result;
}

Result AskAll(const AllArguments& arguments)
{
    std::vector<STNetSpkListInfo> lists;
    const char* function = arguments.array ? "getNetSpkListInfo" : "GetNetSpkListInfo";
    const int result = arguments.array ? GetListsByArray(lists) : GetNetSpkListInfo(lists);
    return result == -1 ? Failed(function, result) : OpaqueRecords(lists, "list", arguments.hex);
}

Action All(CLI::App& app)
{
    const auto arguments = std::make_shared<AllArguments>();
    AddHex(app, arguments->hex);
    app.add_flag("--array", arguments->array, "Use the library's form for plain arrays");
    return [arguments](const Output&) { return AskAll(*arguments); };
}

auto AllBy(bool array)
{
    return [array](CLI::App& app) -> Action {
        const auto arguments = std::make_shared<AllArguments>();
        arguments->array = array;
        AddHex(app, arguments->hex);
        return [arguments](const Output&) { return AskAll(*arguments); };
    };
}

Action Count(CLI::App&)
{
    return [](const Output&) { return Answered("GetNetSpkListInfoNumber", GetNetSpkListInfoNumber()); };
}

Action Nodes(CLI::App& app)
{
    const auto hex = std::make_shared<bool>(false);
    AddHex(app, *hex);
    return [hex](const Output&) {
        std::vector<CNetSpkNodeInfo> nodes;
        const int result = GetNetSpkNodeList(nodes);
        return result == -1 ? Failed("GetNetSpkNodeList", result, "the request failed, or there are no nodes")
                            : OpaqueRecords(nodes, "node", *hex);
    };
}

} // namespace

std::vector<Command> ListCommands()
{
    return {
        {"list",
         "Speaker lists",
         nullptr,
         {
             {"active", "Ask for the active speaker group and its speakers", Active},
             {"all", "Ask for all speaker lists", All},
             {"count", "Ask for the number of speaker lists", Count},
             {"nodes", "Ask for the speaker nodes of the network", Nodes},
         }},
    };
}

std::vector<Command> ListFunctions()
{
    return {
        {"GetActiveNetSpkInfo", "Ask for the active speaker group and its speakers", Active},
        {"GetNetSpkListInfo", "Ask for all speaker lists", AllBy(false)},
        {"getNetSpkListInfo", "Ask for all speaker lists, into a plain array", AllBy(true)},
        {"GetNetSpkListInfoNumber", "Ask for the number of speaker lists", Count},
        {"GetNetSpkNodeList", "Ask for the speaker nodes of the network", Nodes},
    };
}

} // namespace kiv::ctl
