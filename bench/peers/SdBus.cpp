#include "bench/peers/Peer.h"

#include <systemd/sd-bus.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>

namespace kiv::bench {

namespace {

void Check(int result)
{
    if (result < 0) {
        throw std::runtime_error("sd-bus: no answer");
    }
}

struct Unref {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using MessageOwner = std::unique_ptr<sd_bus_message, Unref>;

void AddArguments(sd_bus_message* message, Input input)
{
    switch (input) {
    case Input::kNone:
        break;
    case Input::kInt:
        Check(sd_bus_message_append(message, "i", 0));
        break;
    case Input::kThreeInts:
        Check(sd_bus_message_append(message, "iii", 1, 2, 3));
        break;
    case Input::kAddress:
    case Input::kName:
        Check(sd_bus_message_append(message, "yyyyyyi", kMac[0], kMac[1], kMac[2], kMac[3], kMac[4], kMac[5], kIp));
        if (input == Input::kName) {
            Check(sd_bus_message_append(message, "s", kSpeakerName));
        }
        break;
    case Input::kBytes:
        Check(sd_bus_message_append_array(message, 'y', kMac.data(), kMac.size()));
        break;
    case Input::kServersName:
        Check(sd_bus_message_append(message, "s", kServer.name));
        break;
    case Input::kProcess:
        Check(sd_bus_message_append(message, "i", getpid()));
        break;
    }
}

long Decode(Output output, sd_bus_message* message)
{
    int value = 0;
    const char* text = nullptr;
    const void* data = nullptr;
    std::size_t size = 0;
    switch (output) {
    case Output::kInt:
        Check(sd_bus_message_read_basic(message, 'i', &value));
        return value;
    case Output::kBool:
        Check(sd_bus_message_read_basic(message, 'b', &value));
        return value;
    case Output::kText:
        Check(sd_bus_message_read_basic(message, 's', &text));
        return *text != '\0';
    case Output::kBytes:
        Check(sd_bus_message_read_array(message, 'y', &data, &size));
        return static_cast<long>(size);
    case Output::kIgnored:
        break;
    }
    return 0;
}

class SdBusPeer : public MessagePeer {
public:
    SdBusPeer() { Check(sd_bus_open_system(&bus_)); }
    ~SdBusPeer() override { sd_bus_flush_close_unref(bus_); }
    SdBusPeer(const SdBusPeer&) = delete;
    SdBusPeer& operator=(const SdBusPeer&) = delete;

private:
    long Send(const Request& request) override
    {
        sd_bus_message* call = nullptr;
        Check(sd_bus_message_new_method_call(
            bus_, &call, request.to.name, request.to.path, request.to.interface, request.method));
        const MessageOwner message(call);
        AddArguments(message.get(), request.input);
        sd_bus_message* reply = nullptr;
        Check(sd_bus_call(bus_, message.get(), std::uint64_t{kCallTimeoutMs} * 1000, nullptr, &reply));
        const MessageOwner answer(reply);
        return Decode(request.output, answer.get());
    }

    sd_bus* bus_ = nullptr;
};

} // namespace

std::unique_ptr<Peer> MakeSdBusPeer()
{
    return std::make_unique<SdBusPeer>();
}

} // namespace kiv::bench
