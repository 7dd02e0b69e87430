#include "Names.h"
#include "peers/BusProxy.h"
#include "peers/Peer.h"
#include "peers/ServerProxy.h"

#include <unistd.h>

#include <stdexcept>
#include <string_view>

namespace kiv::bench {

namespace {

constexpr auto kFlags =
    static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES | G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS);

void Check(gboolean succeeded)
{
    if (succeeded == FALSE) {
        throw std::runtime_error("gdbus-codegen: no answer");
    }
}

class CodegenPeer : public Peer {
public:
    CodegenPeer()
        : bus_(bench_bus_proxy_new_for_bus_sync(G_BUS_TYPE_SYSTEM, kFlags, kBusName, kBusPath, nullptr, nullptr)),
          server_(bench_server_proxy_new_for_bus_sync(
              G_BUS_TYPE_SYSTEM, kFlags, kServerName, kServerPath, nullptr, nullptr))
    {
        if (bus_ == nullptr || server_ == nullptr) {
            throw std::runtime_error("gdbus-codegen: no bus");
        }
        g_dbus_proxy_set_default_timeout(G_DBUS_PROXY(server_), kCallTimeoutMs);
    }
    ~CodegenPeer() override
    {
        g_object_unref(bus_);
        g_object_unref(server_);
    }
    CodegenPeer(const CodegenPeer&) = delete;
    CodegenPeer& operator=(const CodegenPeer&) = delete;

    long Call(const Request& request) override
    {
        CheckOwner();
        g_free(Id());
        CheckOwner();
        return Method(request.method);
    }

private:
    void CheckOwner()
    {
        gboolean owned = FALSE;
        Check(bench_bus_call_name_has_owner_sync(bus_, kServerName, &owned, nullptr, nullptr));
        Check(owned);
    }

    char* Id()
    {
        char* id = nullptr;
        Check(bench_server_call_check_dbus_connection_sync(server_, getpid(), &id, nullptr, nullptr));
        return id;
    }

    long Method(std::string_view method)
    {
        gint value = 0;
        gboolean truth = FALSE;
        if (method == "NodeRemoveFromWatcher") {
            Check(bench_server_call_node_remove_from_watcher_sync(server_, 0, &value, nullptr, nullptr));
            return value;
        }
        if (method == "GetSurroundChannelNumber") {
            Check(bench_server_call_get_surround_channel_number_sync(server_, &value, nullptr, nullptr));
            return value;
        }
        if (method == "kiv_is_receiver_atmos") {
            Check(bench_server_call_kiv_is_receiver_atmos_sync(server_, &truth, nullptr, nullptr));
            return truth;
        }
        if (method == "StartNetworkSpeakerByID") {
            Check(bench_server_call_start_network_speaker_by_id_sync(server_, 1, 2, 3, &value, nullptr, nullptr));
            return value;
        }
        if (method == "GetNetSpkVolume") {
            Check(bench_server_call_get_net_spk_volume_sync(
                server_, kMac[0], kMac[1], kMac[2], kMac[3], kMac[4], kMac[5], kIp, &value, nullptr, nullptr));
            return 0;
        }
        if (method == "SetNetSpkName") {
            Check(bench_server_call_set_net_spk_name_sync(
                server_, kMac[0], kMac[1], kMac[2], kMac[3], kMac[4], kMac[5], kIp, kSpeakerName, &value, nullptr,
                nullptr));
            return 0;
        }
        if (method == "SubscribeNamServiceCallback") {
            char* id = nullptr;
            Check(bench_server_call_subscribe_nam_service_callback_sync(server_, 0, &id, nullptr, nullptr));
            g_free(id);
            return 1;
        }
        if (method == "IsSoundbarSupportSoundMode") {
            GVariant* mac = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, kMac.data(), kMac.size(), 1);
            Check(bench_server_call_is_soundbar_support_sound_mode_sync(server_, mac, &truth, nullptr, nullptr));
            return truth;
        }
        GVariant* list = nullptr;
        Check(bench_server_call_get_net_spk_node_list_sync(server_, 0, &list, nullptr, nullptr));
        const auto count = static_cast<long>(g_variant_n_children(list));
        g_variant_unref(list);
        return count;
    }

    BenchBus* bus_;
    BenchServer* server_;
};

} // namespace

std::unique_ptr<Peer> MakeCodegenPeer()
{
    return std::make_unique<CodegenPeer>();
}

} // namespace kiv::bench
