#pragma once

#include "Command.h"
#include "Layout.h"

#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kiv::ctl {

// The server reports volumes by an event, which it sends when it is asked for them and when it has set them. There can
// be one object of this class at a time.
class VolumeReports {
public:
    explicit VolumeReports(Layout layout);
    ~VolumeReports();
    VolumeReports(const VolumeReports&) = delete;
    VolumeReports& operator=(const VolumeReports&) = delete;

    // Returns when events can come, or why they cannot.
    std::optional<Result> Begin();

    // Waits until the volumes of these speakers have come: of any, if there are none. The library function of that name
    // has asked for them.
    Result Await(const char* function, const std::vector<Mac>& speakers);

private:
    static void OnEvent(int id, void* data, int length);

    void Add(int id, Bytes data, int length);
    // The speakers whose volume has not come.
    std::vector<std::string> Missing(const std::vector<std::string>& macs);
    // Tells whether there is nothing to wait for any more.
    bool IsComplete(const std::vector<std::string>& macs);

    const Layout layout_;
    const bool knowsVolumes_; // Otherwise the first event is taken for the report, and shown as it is.
    bool subscribed_ = false;
    std::mutex mutex_;
    // The reports are guarded by the mutex: the library's monitor thread adds them.
    std::vector<Json> reports_;
    std::optional<std::string> unknown_;
};

} // namespace kiv::ctl
