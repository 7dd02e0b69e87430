#include "bench/Names.h"
#include "bench/peers/EventPeer.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <stdexcept>
#include <stop_token>
#include <thread>

namespace kiv::bench {

namespace {

constexpr const char* kId = "sdbus";
constexpr std::uint64_t kWaitUs = 100'000; // the thread ends this soon after its last event

void Check(int result)
{
    if (result < 0) {
        throw std::runtime_error("sd-bus: no object for events");
    }
}

int OnEvent(sd_bus_message* message, void* subscribers, sd_bus_error* /*error*/)
{
    const void* payload = nullptr;
    std::size_t size = 0;
    const int read = sd_bus_message_read_array(message, 'y', &payload, &size);
    if (read < 0) {
        return read;
    }
    const int answered = sd_bus_reply_method_return(message, nullptr);
    TellSubscribers(*static_cast<std::vector<EventPeer::Subscriber>*>(subscribers), payload, size);
    return answered;
}

const sd_bus_vtable kObject[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_METHOD(kEventMethod, "ay", nullptr, OnEvent, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

// Serves an object on a connection and a thread of its own.
class SdBusEvents : public EventPeer {
public:
    SdBusEvents()
    {
        Check(sd_bus_open_system(&bus_));
        Check(sd_bus_add_object_vtable(
            bus_, nullptr, (std::string(kClientPath) + kId).c_str(), (std::string(kClientInterface) + kId).c_str(),
            kObject, &subscribers_));
        Check(sd_bus_request_name(bus_, (std::string(kClientName) + kId).c_str(), 0));
        thread_ = std::jthread([this](const std::stop_token& end) {
            while (!end.stop_requested()) {
                if (sd_bus_process(bus_, nullptr) == 0) {
                    sd_bus_wait(bus_, kWaitUs);
                }
            }
        });
    }
    ~SdBusEvents() override
    {
        thread_ = {};
        sd_bus_flush_close_unref(bus_);
    }
    SdBusEvents(const SdBusEvents&) = delete;
    SdBusEvents& operator=(const SdBusEvents&) = delete;

    std::string Id() const override { return kId; }

    void Subscribe(unsigned count, Subscriber subscriber) override { subscribers_.assign(count, subscriber); }

private:
    std::vector<Subscriber> subscribers_; // changed only while no events arrive
    sd_bus* bus_ = nullptr;
    std::jthread thread_;
};

} // namespace

std::unique_ptr<EventPeer> MakeSdBusEvents()
{
    return std::make_unique<SdBusEvents>();
}

} // namespace kiv::bench
