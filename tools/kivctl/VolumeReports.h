#pragma once

#include "tools/kivctl/Command.h"
#include "tools/kivctl/Layout.h"

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kiv::ctl {

// Collects the server's reports of volumes. The server sends them as events when it is asked for volumes and when it
// has set them. There can be one object of this class at a time.
class VolumeReports {
public:
    explicit VolumeReports(Layout layout);
    ~VolumeReports();
    VolumeReports(const VolumeReports&) = delete;
    VolumeReports& operator=(const VolumeReports&) = delete;

    // Waits until events can arrive. Returns the reason if they cannot.
    std::optional<Result> Begin();

    // Waits for the volumes of these speakers, or for any report if there are none. The library function of that name
    // has asked for them.
    Result Await(const char* function, const std::vector<Mac>& speakers);

private:
    static void OnEvent(int id, void* data, int length);

    void Add(int id, Bytes data, int length);
    // Returns the speakers whose volume has not arrived.
    std::vector<std::string> Missing(const std::vector<std::string>& macs);
    // Returns whether all volumes have arrived.
    bool IsComplete(const std::vector<std::string>& macs);

    const Layout layout_;
    const bool knowsVolumes_; // If false, the first event counts as the report, and is shown as it is.
    bool subscribed_ = false;
    std::mutex mutex_;
    // The mutex guards these two members, because the library's monitor thread adds the reports.
    std::vector<Json> reports_;
    std::optional<std::string> unknown_;
};

} // namespace kiv::ctl
