#pragma once

#include "bench/Names.h"

#include <array>
#include <cstddef>

namespace kiv::bench {

// The arguments that a request sends, and the answer that it gets.
enum class Input { kNone, kInt, kThreeInts, kAddress, kName, kBytes, kServersName, kProcess };
enum class Output { kInt, kBool, kText, kBytes, kIgnored };

struct Request {
    const char* method;
    const char* shape; // shown in the report
    Input input;
    Output output;
    const Destination& to = kServer;
};

// The requests that precede each request of an exported function.
inline constexpr Request kOwnerRequest = {"NameHasOwner", "", Input::kServersName, Output::kBool, kBus};
inline constexpr Request kIdRequest = {"check_dbus_connection", "", Input::kProcess, Output::kText};

// One request of each shape. The first one is measured where only one is.
inline constexpr std::array kScalarRequests = {
    Request{"NodeRemoveFromWatcher", "int → int", Input::kInt, Output::kInt},
    Request{"GetSurroundChannelNumber", "nothing → int", Input::kNone, Output::kInt},
    Request{"kiv_is_receiver_atmos", "nothing → bool", Input::kNone, Output::kBool},
    Request{"StartNetworkSpeakerByID", "3 ints → int", Input::kThreeInts, Output::kInt},
    Request{"GetNetSpkVolume", "address → nothing", Input::kAddress, Output::kIgnored},
    Request{"SetNetSpkName", "address, string → nothing", Input::kName, Output::kIgnored},
    Request{"SubscribeNamServiceCallback", "int → string", Input::kInt, Output::kText},
    Request{"IsSoundbarSupportSoundMode", "bytes → bool", Input::kBytes, Output::kBool},
};
inline constexpr Request kListRequest = {"GetNetSpkNodeList", "int → records", Input::kInt, Output::kBytes};
inline constexpr std::size_t kRecordSize = 134;

// The arguments are the same in all requests.
inline constexpr std::array<unsigned char, 6> kMac = {0xa4, 0x11, 0x22, 0x33, 0x44, 0x55};
inline constexpr int kIp = 0x0a00a8c0;
inline constexpr const char* kSpeakerName = "Living Room";

} // namespace kiv::bench
