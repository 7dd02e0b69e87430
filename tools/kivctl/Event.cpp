#include "tools/kivctl/Event.h"

#include "tools/Harmless.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

#include <algorithm>

namespace kiv::ctl {
namespace {

constexpr size_t kShortLength = 32;

const char* LibrarysName(int id)
{
    switch (id) {
    case NAMSERVICE_EXIT_STATE:
        return "NAMSERVICE_EXIT_STATE";
    case NAMSERVICE_ATMOS_STATE:
        return "NAMSERVICE_ATMOS_STATE";
    default:
        return "";
    }
}

std::string ShortHexText(Bytes data, size_t most)
{
    const Bytes shown = data.first(std::min(data.size(), most));
    std::string text = HexText(shown, " ");
    if (shown.size() < data.size()) {
        text += fmt::format(" ... ({} more)", data.size() - shown.size());
    }
    return text;
}

std::string NameOf(int id, const Layout::Event* known)
{
    const std::string name = LibrarysName(id);
    return name.empty() && known != nullptr ? known->name : name;
}

} // namespace

EventTexts DescribeEvent(int id, Bytes data, int length, const Layout& layout, bool raw)
{
    const Layout::Event* known = layout.FindEvent(id);
    const std::string name = NameOf(id, known);
    const std::string hexId = fmt::format("{:#010x}", static_cast<unsigned>(id));
    EventTexts event{
        fmt::format("event {}{}{}, length {}", hexId, name.empty() ? "" : " ", Harmless(name), length),
        {{"event", hexId},
         {"name", name.empty() ? Json(nullptr) : Json(name)},
         {"length", length},
         {"data", HexText(data, "")}}};
    const Json decoded = known == nullptr ? Json::array() : layout.Decode(known->record, data);
    if (known != nullptr) {
        event.fields["decoded"] = decoded;
    }
    if (!decoded.empty()) {
        event.text += ": " + RecordsLine(decoded);
    }
    if (!data.empty() && (raw || decoded.empty())) {
        event.text += ": " + ShortHexText(data, raw ? data.size() : kShortLength);
    }
    return event;
}

Bytes EventData(const void* data, int length)
{
    return {static_cast<const unsigned char*>(data), static_cast<size_t>(std::max(length, 0))};
}

} // namespace kiv::ctl
