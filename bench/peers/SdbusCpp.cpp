#include "Names.h"
#include "peers/Peer.h"

#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace kiv::bench {

namespace {

void AddArguments(sdbus::MethodCall& call, Input input)
{
    switch (input) {
    case Input::kNone:
        break;
    case Input::kInt:
        call << 0;
        break;
    case Input::kThreeInts:
        call << 1 << 2 << 3;
        break;
    case Input::kAddress:
    case Input::kName:
        for (const std::uint8_t byte : kMac) {
            call << byte;
        }
        call << kIp;
        if (input == Input::kName) {
            call << std::string(kSpeakerName);
        }
        break;
    case Input::kBytes:
        call << std::vector<std::uint8_t>(kMac.begin(), kMac.end());
        break;
    }
}

template <typename Value>
Value Read(sdbus::MethodReply& reply)
{
    Value value{};
    reply >> value;
    return value;
}

long Decode(Output output, sdbus::MethodReply& reply)
{
    switch (output) {
    case Output::kInt:
        return Read<std::int32_t>(reply);
    case Output::kBool:
        return Read<bool>(reply);
    case Output::kText:
        return !Read<std::string>(reply).empty();
    case Output::kBytes:
        return static_cast<long>(Read<std::vector<std::uint8_t>>(reply).size());
    case Output::kIgnored:
        break;
    }
    return 0;
}

class SdbusCppPeer : public Peer {
public:
    long Call(const Request& request) override
    {
        CheckOwner();
        sdbus::MethodCall id = server_->createMethodCall(kServerInterface, kIdMethod);
        id << static_cast<std::int32_t>(getpid());
        Send(*server_, id, kTimeout, Output::kText);
        CheckOwner();
        sdbus::MethodCall call = server_->createMethodCall(kServerInterface, request.method);
        AddArguments(call, request.input);
        return Send(*server_, call, kTimeout, request.output);
    }

private:
    static constexpr std::uint64_t kTimeout = std::uint64_t{kCallTimeoutMs} * 1000;

    void CheckOwner()
    {
        sdbus::MethodCall query = busObject_->createMethodCall(kBusName, kOwnerMethod);
        query << std::string(kServerName);
        if (Send(*busObject_, query, 0, Output::kBool) == 0) {
            throw std::runtime_error("sdbus-c++: no server");
        }
    }

    static long Send(sdbus::IProxy& proxy, const sdbus::MethodCall& call, std::uint64_t timeout, Output output)
    {
        sdbus::MethodReply reply = proxy.callMethod(call, timeout);
        return Decode(output, reply);
    }

    // The connection has no event loop, because blocking calls do not need one.
    std::unique_ptr<sdbus::IConnection> bus_ = sdbus::createSystemBusConnection();
    std::unique_ptr<sdbus::IProxy> busObject_ = sdbus::createProxy(*bus_, kBusName, kBusPath);
    std::unique_ptr<sdbus::IProxy> server_ = sdbus::createProxy(*bus_, kServerName, kServerPath);
};

} // namespace

std::unique_ptr<Peer> MakeSdbusCppPeer()
{
    return std::make_unique<SdbusCppPeer>();
}

} // namespace kiv::bench
