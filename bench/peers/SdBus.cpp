#include "Names.h"
#include "peers/Peer.h"

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

class SdBusPeer : public Peer {
public:
    SdBusPeer() { Check(sd_bus_open_system(&bus_)); }
    ~SdBusPeer() override { sd_bus_flush_close_unref(bus_); }
    SdBusPeer(const SdBusPeer&) = delete;
    SdBusPeer& operator=(const SdBusPeer&) = delete;

    long Call(const Request& request) override
    {
        CheckOwner();
        const MessageOwner id = NewCall(kServerName, kServerPath, kServerInterface, kIdMethod);
        Check(sd_bus_message_append(id.get(), "i", getpid()));
        Send(id.get(), kCallTimeoutMs, Output::kText);
        CheckOwner();
        const MessageOwner message = NewCall(kServerName, kServerPath, kServerInterface, request.method);
        AddArguments(message.get(), request.input);
        return Send(message.get(), kCallTimeoutMs, request.output);
    }

private:
    MessageOwner NewCall(const char* name, const char* path, const char* interface, const char* method)
    {
        sd_bus_message* message = nullptr;
        Check(sd_bus_message_new_method_call(bus_, &message, name, path, interface, method));
        return MessageOwner(message);
    }

    void CheckOwner()
    {
        const MessageOwner query = NewCall(kBusName, kBusPath, kBusName, kOwnerMethod);
        Check(sd_bus_message_append(query.get(), "s", kServerName));
        if (Send(query.get(), 0, Output::kBool) == 0) {
            throw std::runtime_error("sd-bus: no server");
        }
    }

    long Send(sd_bus_message* message, unsigned timeoutMs, Output output)
    {
        sd_bus_message* reply = nullptr;
        const int result = sd_bus_call(bus_, message, std::uint64_t{timeoutMs} * 1000, nullptr, &reply);
        const MessageOwner answer(reply);
        Check(result);
        return Decode(output, answer.get());
    }

    sd_bus* bus_ = nullptr;
};

} // namespace

std::unique_ptr<Peer> MakeSdBusPeer()
{
    return std::make_unique<SdBusPeer>();
}

} // namespace kiv::bench
