#include "bench/peers/Peer.h"
#include "src/link/Owners.h"

#include <unistd.h>

#include <stdexcept>

namespace kiv::bench {

namespace {

GVariant* Arguments(Input input)
{
    switch (input) {
    case Input::kNone:
        break;
    case Input::kInt:
        return g_variant_new("(i)", 0);
    case Input::kThreeInts:
        return g_variant_new("(iii)", 1, 2, 3);
    case Input::kAddress:
        return g_variant_new("(yyyyyyi)", kMac[0], kMac[1], kMac[2], kMac[3], kMac[4], kMac[5], kIp);
    case Input::kName:
        return g_variant_new("(yyyyyyis)", kMac[0], kMac[1], kMac[2], kMac[3], kMac[4], kMac[5], kIp, kSpeakerName);
    case Input::kBytes:
        return g_variant_new("(@ay)", g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, kMac.data(), kMac.size(), 1));
    case Input::kServersName:
        return g_variant_new("(s)", kServer.name);
    case Input::kProcess:
        return g_variant_new("(i)", getpid());
    }
    return nullptr;
}

const char* TypeOf(Output output)
{
    switch (output) {
    case Output::kBool:
        return "(b)";
    case Output::kText:
        return "(s)";
    case Output::kBytes:
        return "(ay)";
    default:
        return "(i)";
    }
}

long Decode(Output output, GVariant* answer)
{
    const link::VariantOwner value = link::Member(answer);
    switch (output) {
    case Output::kInt:
        return g_variant_get_int32(value.get());
    case Output::kBool:
        return g_variant_get_boolean(value.get());
    case Output::kText:
        return *g_variant_get_string(value.get(), nullptr) != '\0';
    case Output::kBytes:
        return static_cast<long>(g_variant_n_children(value.get()));
    case Output::kIgnored:
        break;
    }
    return 0;
}

class GioPeer : public MessagePeer {
public:
    GioPeer()
    {
        if (!bus_) {
            throw std::runtime_error("GIO: no bus");
        }
    }

private:
    long Send(const Request& request) override
    {
        const link::VariantOwner answer(g_dbus_connection_call_sync(
            bus_.get(), request.to.name, request.to.path, request.to.interface, request.method,
            Arguments(request.input), G_VARIANT_TYPE(TypeOf(request.output)), G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs,
            nullptr, nullptr));
        if (!answer) {
            throw std::runtime_error("GIO: no answer");
        }
        return Decode(request.output, answer.get());
    }

    link::ConnectionOwner bus_{g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr)};
};

} // namespace

std::unique_ptr<Peer> MakeGioPeer()
{
    return std::make_unique<GioPeer>();
}

} // namespace kiv::bench
