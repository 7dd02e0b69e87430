#include <KivServiceInterface.h>

#include <array>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace {

// Sets the volume of a speaker to the last value given. While a call runs, newer values replace the one that waits.
class VolumeSlider {
public:
    explicit VolumeSlider(const std::array<unsigned char, NETSPK_MAC_LEN>& mac) : mac_(mac) {}

    // Never waits for the server. Notes the value and wakes the thread.
    void MoveTo(int volume)
    {
        {
            const std::lock_guard lock(mutex_);
            wanted_ = volume;
        }
        moved_.notify_one();
    }

private:
    void Send(const std::stop_token& stop)
    {
        std::unique_lock lock(mutex_);
        // After the stop request, wait() still returns true once if a value has not been sent.
        while (moved_.wait(lock, stop, [this] { return wanted_.has_value(); })) {
            const int volume = *std::exchange(wanted_, std::nullopt);
            lock.unlock();
            SetNetSpkVolume(mac_.data(), 0, volume);
            lock.lock();
        }
    }

    const std::array<unsigned char, NETSPK_MAC_LEN> mac_;
    std::mutex mutex_;
    std::condition_variable_any moved_;
    std::optional<int> wanted_;
    // The thread is the last member, so that it ends before the members that it uses are destroyed.
    std::jthread sender_{[this](const std::stop_token& stop) { Send(stop); }};
};

} // namespace

int main()
{
    {
        VolumeSlider left({0x02, 0x4b, 0x49, 0x56, 0x00, 0x01});
        for (int volume = 0; volume <= 60; ++volume) {
            left.MoveTo(volume);
        }
    }
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
