#include "tools/kivctl/VolumeReports.h"

#include "tools/kivctl/Bus.h"
#include "tools/kivctl/Event.h"
#include "tools/kivctl/MainLoop.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace kiv::ctl {
namespace {

constexpr const char* kVolumeSubscription = "kivctl-volume";
constexpr std::chrono::seconds kReportLimit{3};
constexpr std::chrono::seconds kMoment{1};

// The object for the event callback, which gets no user data.
VolumeReports* g_reports = nullptr;

} // namespace

VolumeReports::VolumeReports(Layout layout) : layout_(std::move(layout)), knowsVolumes_(layout_.HasEvent(kVolumeEvent))
{
    g_reports = this;
}

VolumeReports::~VolumeReports()
{
    if (subscribed_) {
        UnsubscribeNamServiceCallback(kVolumeSubscription);
    }
    // After this call, no callback runs.
    CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
    g_reports = nullptr;
}

std::optional<Result> VolumeReports::Begin()
{
    subscribed_ = SubscribeNamServiceCallback(kVolumeSubscription, OnEvent) == 1;
    if (!subscribed_) {
        return Failed("SubscribeNamServiceCallback", 0);
    }
    const auto bus = ConnectToSystemBus(nullptr);
    const ClientNames client(CNSGdbus::m_pInstance->m_strClientName);
    if (bus == nullptr || !client.Fit() || !AwaitOwner(bus.get(), client.name, kMoment)) {
        const std::string reason = fmt::format("no volume can come: {}", NoOwnerText(client.name));
        return Failure(reason, kDoctorTellsWhy);
    }
    return std::nullopt;
}

void VolumeReports::OnEvent(int id, void* data, int length)
{
    g_reports->Add(id, EventData(data, length), length);
    g_main_context_wakeup(nullptr);
}

void VolumeReports::Add(int id, Bytes data, int length)
{
    const std::scoped_lock lock(mutex_);
    const Layout::Event* known = layout_.FindEvent(id);
    if (known != nullptr && known->name == kVolumeEvent) {
        const Json decoded = layout_.Decode(known->record, data);
        reports_.insert(reports_.end(), decoded.begin(), decoded.end());
    } else if (!knowsVolumes_ && !unknown_ && id != NAMSERVICE_EXIT_STATE && id != NAMSERVICE_ATMOS_STATE) {
        unknown_ = DescribeEvent(id, data, length, layout_, true).text;
    }
}

std::vector<std::string> VolumeReports::Missing(const std::vector<std::string>& macs)
{
    const std::scoped_lock lock(mutex_);
    std::vector<std::string> missing;
    std::ranges::copy_if(macs, std::back_inserter(missing), [this](const std::string& mac) {
        return std::ranges::none_of(reports_, [&mac](const Json& report) { return report.at("mac") == mac; });
    });
    return missing;
}

bool VolumeReports::IsComplete(const std::vector<std::string>& macs)
{
    const bool missing = !Missing(macs).empty();
    const std::scoped_lock lock(mutex_);
    return unknown_.has_value() || (!reports_.empty() && !missing);
}

Result VolumeReports::Await(const char* function, const std::vector<Mac>& speakers)
{
    std::vector<std::string> macs;
    std::ranges::transform(speakers, std::back_inserter(macs), [](const Mac& mac) { return HexText(mac, ":"); });
    const bool complete = WaitUntil([&] { return IsComplete(macs); }, kReportLimit);
    const std::vector<std::string> missing = Missing(macs);
    const std::scoped_lock lock(mutex_);
    if (unknown_) {
        return Done(*unknown_ + "\n--layout names the fields of the event", {{"sent", true}, {"event", *unknown_}});
    }
    Result result = Done("", {{"sent", true}, {"volumes", reports_}});
    std::vector<std::pair<std::string, std::string>> rows;
    for (const Json& report : reports_) {
        rows.emplace_back(report.at("mac").get<std::string>(), report.at("volume").dump());
    }
    result.text = Table(rows);
    if (!complete) {
        const std::string reason = fmt::format(
            "{}: sent, but no volume{}{} came within {} s; the server reports those of the speakers that it is "
            "connected with (kivctl list all){}",
            function, missing.empty() ? "" : " of ", fmt::join(missing, ", "), kReportLimit.count(),
            rows.empty() ? ", or its events do not arrive" : "");
        result.advice = rows.empty() ? kDoctorTellsWhy : "";
        result.exitCode = kFailed;
        result.text += (rows.empty() ? "" : "\n") + reason;
        result.fields["error"] = reason;
    }
    return result;
}

} // namespace kiv::ctl
