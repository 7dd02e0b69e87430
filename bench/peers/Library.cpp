#include "bench/peers/Library.h"

#include "bench/peers/Peer.h"
#include <KivServiceInterface.h>

#include <dlfcn.h>

#include <stdexcept>
#include <string_view>

namespace kiv::bench {

LoadedLibrary::LoadedLibrary(const std::string& file) : handle_(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (handle_ == nullptr) {
        throw std::runtime_error(dlerror());
    }
}

void* LoadedLibrary::Find(const char* name) const
{
    void* symbol = dlsym(handle_, name);
    if (symbol == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return symbol;
}

namespace {

void IgnoreEvent(int /*id*/, void* /*data*/, int /*length*/) {}

class LibraryPeer : public Peer {
public:
    explicit LibraryPeer(const std::string& file) : library_(file) {}

    long Call(const Request& request) override
    {
        const std::string_view method = request.method;
        if (method == "NodeRemoveFromWatcher") {
            return unwatch_(0);
        }
        if (method == "GetSurroundChannelNumber") {
            return channels_();
        }
        if (method == "kiv_is_receiver_atmos") {
            return atmos_();
        }
        if (method == "StartNetworkSpeakerByID") {
            return startById_(2, 1, 3);
        }
        if (method == "GetNetSpkVolume") {
            volume_(kMac.data(), kIp);
            return 0;
        }
        if (method == "SetNetSpkName") {
            rename_(kMac.data(), kIp, kSpeakerName);
            return 0;
        }
        if (method == "SubscribeNamServiceCallback") {
            return subscribe_("bench", IgnoreEvent);
        }
        if (method == "IsSoundbarSupportSoundMode") {
            return supports_(kMac.data());
        }
        std::vector<CNetSpkNodeInfo> list;
        list_(list); // fails if there are no records
        return static_cast<long>(sizeof(CNetSpkNodeInfo) * list.size());
    }

private:
    LoadedLibrary library_;
    decltype(&NodeRemoveFromWatcher) unwatch_ = library_.Function<decltype(unwatch_)>("NodeRemoveFromWatcher");
    decltype(&GetSurroundChannelNumber) channels_ = library_.Function<decltype(channels_)>("GetSurroundChannelNumber");
    decltype(&kiv_is_receiver_atmos) atmos_ = library_.Function<decltype(atmos_)>("kiv_is_receiver_atmos");
    decltype(&StartNetworkSpeakerByID) startById_ = library_.Function<decltype(startById_)>("StartNetworkSpeakerByID");
    decltype(&GetNetSpkVolume) volume_ = library_.Function<decltype(volume_)>("GetNetSpkVolume");
    decltype(&SetNetSpkName) rename_ = library_.Function<decltype(rename_)>("SetNetSpkName");
    decltype(&SubscribeNamServiceCallback) subscribe_ =
        library_.Function<decltype(subscribe_)>("SubscribeNamServiceCallback");
    decltype(&IsSoundbarSupportSoundMode) supports_ =
        library_.Function<decltype(supports_)>("IsSoundbarSupportSoundMode");
    decltype(&GetNetSpkNodeList) list_ = library_.Function<decltype(list_)>("GetNetSpkNodeList");
};

} // namespace

std::unique_ptr<Peer> MakeLibraryPeer(const std::string& file)
{
    return std::make_unique<LibraryPeer>(file);
}

} // namespace kiv::bench
