#include "bench/peers/Peer.h"

#include <dbus/dbus.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>

namespace kiv::bench {

namespace {

struct Unref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using MessageOwner = std::unique_ptr<DBusMessage, Unref>;

template <typename Value>
void Append(DBusMessage* message, int type, Value value)
{
    DBusMessageIter end;
    dbus_message_iter_init_append(message, &end);
    dbus_message_iter_append_basic(&end, type, &value);
}

void AddArguments(DBusMessage* message, Input input)
{
    switch (input) {
    case Input::kNone:
        break;
    case Input::kInt:
        Append(message, DBUS_TYPE_INT32, dbus_int32_t{0});
        break;
    case Input::kThreeInts:
        for (const dbus_int32_t value : {1, 2, 3}) {
            Append(message, DBUS_TYPE_INT32, value);
        }
        break;
    case Input::kAddress:
    case Input::kName:
        for (const unsigned char byte : kMac) {
            Append(message, DBUS_TYPE_BYTE, byte);
        }
        Append(message, DBUS_TYPE_INT32, dbus_int32_t{kIp});
        if (input == Input::kName) {
            Append(message, DBUS_TYPE_STRING, kSpeakerName);
        }
        break;
    case Input::kBytes: {
        const unsigned char* data = kMac.data();
        dbus_message_append_args(
            message, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &data, static_cast<int>(kMac.size()), DBUS_TYPE_INVALID);
        break;
    }
    case Input::kServersName:
        Append(message, DBUS_TYPE_STRING, kServer.name);
        break;
    case Input::kProcess:
        Append(message, DBUS_TYPE_INT32, dbus_int32_t{getpid()});
        break;
    }
}

template <typename Value>
Value Get(DBusMessage* message, int type)
{
    Value value{};
    if (dbus_message_get_args(message, nullptr, type, &value, DBUS_TYPE_INVALID) == FALSE) {
        throw std::runtime_error("libdbus: another answer");
    }
    return value;
}

long Decode(Output output, DBusMessage* message)
{
    switch (output) {
    case Output::kInt:
        return Get<dbus_int32_t>(message, DBUS_TYPE_INT32);
    case Output::kBool:
        return Get<dbus_bool_t>(message, DBUS_TYPE_BOOLEAN) != FALSE;
    case Output::kText:
        return *Get<const char*>(message, DBUS_TYPE_STRING) != '\0';
    case Output::kBytes: {
        const unsigned char* data = nullptr;
        int count = 0;
        dbus_message_get_args(message, nullptr, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &data, &count, DBUS_TYPE_INVALID);
        return count;
    }
    case Output::kIgnored:
        break;
    }
    return 0;
}

class LibdbusPeer : public MessagePeer {
public:
    LibdbusPeer()
    {
        dbus_threads_init_default();
        bus_ = dbus_bus_get_private(DBUS_BUS_SYSTEM, nullptr);
        if (bus_ == nullptr) {
            throw std::runtime_error("libdbus: no bus");
        }
        dbus_connection_set_exit_on_disconnect(bus_, FALSE);
    }
    ~LibdbusPeer() override
    {
        dbus_connection_close(bus_);
        dbus_connection_unref(bus_);
    }
    LibdbusPeer(const LibdbusPeer&) = delete;
    LibdbusPeer& operator=(const LibdbusPeer&) = delete;

private:
    long Send(const Request& request) override
    {
        const MessageOwner message(
            dbus_message_new_method_call(request.to.name, request.to.path, request.to.interface, request.method));
        AddArguments(message.get(), request.input);
        const MessageOwner answer(
            dbus_connection_send_with_reply_and_block(bus_, message.get(), kCallTimeoutMs, nullptr));
        if (!answer) {
            throw std::runtime_error("libdbus: no answer");
        }
        return Decode(request.output, answer.get());
    }

    DBusConnection* bus_;
};

} // namespace

std::unique_ptr<Peer> MakeLibdbusPeer()
{
    return std::make_unique<LibdbusPeer>();
}

} // namespace kiv::bench
