#include "Names.h"
#include "peers/Peer.h"

#include <gio/gio.h>
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
    }
    return nullptr;
}

long Decode(Output output, GVariant* answer)
{
    switch (output) {
    case Output::kInt: {
        gint32 value = 0;
        g_variant_get(answer, "(i)", &value);
        return value;
    }
    case Output::kBool: {
        gboolean value = FALSE;
        g_variant_get(answer, "(b)", &value);
        return value;
    }
    case Output::kText: {
        const char* value = nullptr;
        g_variant_get(answer, "(&s)", &value);
        return *value != '\0';
    }
    case Output::kBytes: {
        GVariant* array = g_variant_get_child_value(answer, 0);
        const auto count = static_cast<long>(g_variant_n_children(array));
        g_variant_unref(array);
        return count;
    }
    case Output::kIgnored:
        break;
    }
    return 0;
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

class GioPeer : public Peer {
public:
    GioPeer() : bus_(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr))
    {
        if (bus_ == nullptr) {
            throw std::runtime_error("GIO: no bus");
        }
    }
    ~GioPeer() override { g_object_unref(bus_); }
    GioPeer(const GioPeer&) = delete;
    GioPeer& operator=(const GioPeer&) = delete;

    long Call(const Request& request) override
    {
        CheckOwner();
        CallServer(kIdMethod, g_variant_new("(i)", getpid()), Output::kText);
        CheckOwner();
        return CallServer(request.method, Arguments(request.input), request.output);
    }

private:
    void CheckOwner()
    {
        GVariant* answer = g_dbus_connection_call_sync(
            bus_, kBusName, kBusPath, kBusName, kOwnerMethod, g_variant_new("(s)", kServerName), G_VARIANT_TYPE("(b)"),
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        if (Take(answer, Output::kBool) == 0) {
            throw std::runtime_error("GIO: no server");
        }
    }

    long CallServer(const char* method, GVariant* arguments, Output output)
    {
        return Take(
            g_dbus_connection_call_sync(
                bus_, kServerName, kServerPath, kServerInterface, method, arguments, G_VARIANT_TYPE(TypeOf(output)),
                G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, nullptr),
            output);
    }

    static long Take(GVariant* answer, Output output)
    {
        if (answer == nullptr) {
            throw std::runtime_error("GIO: no answer");
        }
        const long value = Decode(output, answer);
        g_variant_unref(answer);
        return value;
    }

    GDBusConnection* bus_;
};

} // namespace

std::unique_ptr<Peer> MakeGioPeer()
{
    return std::make_unique<GioPeer>();
}

} // namespace kiv::bench
