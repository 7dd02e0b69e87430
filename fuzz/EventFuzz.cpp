// Fuzzes calls of the client object. Input: an index into kCallees, and the arguments as an answer. An error stands for
// no arguments.

#include "KivServiceInterface.h"
#include "fuzz/Bus.h"
#include "fuzz/Input.h"
#include "fuzz/Target.h"
#include "src/link/BusClient.h"
#include "src/link/EventDispatch.h"

#include <algorithm>
#include <array>
#include <string_view>

using namespace kiv::fuzz;
using kiv::link::ObjectOwner;

namespace {

// The methods of the client object. Null is for NamNotifySubscriber() itself, which one of the methods calls.
constexpr const char* kCallees[] = {
    "nam_notify_subscriber", "test_nam_notify_subscriber_1", "000_nam_notify_subscriber", nullptr};

// The calls that the library has made for an event.
struct Outcome {
    int answers = 0;
    int atmosCalls = 0;
    int subscriberCalls = 0;
    int eventId = 0;
    int length = 0;
    std::array<unsigned char, NAMSERVICE_EVENT_DATA_MAX> data{};
};

Outcome g_outcome;

void OnAtmos(int supported, void* outcome)
{
    KIV_REQUIRE(supported == 1 && outcome == &g_outcome);
    KIV_REQUIRE(g_outcome.answers == 1 && g_outcome.subscriberCalls == 0);
    ++g_outcome.atmosCalls;
}

void OnEvent(int eventId, void* data, int length)
{
    KIV_REQUIRE(g_outcome.answers == 1);
    KIV_REQUIRE(length <= NAMSERVICE_EVENT_DATA_MAX);
    ++g_outcome.subscriberCalls;
    g_outcome.eventId = eventId;
    g_outcome.length = length;
    std::copy_n(static_cast<const unsigned char*>(data), g_outcome.data.size(), g_outcome.data.begin());
}

bool Subscribe()
{
    KIV_REQUIRE(SubscribeNamServiceCallback("subscriber", OnEvent) == 1);
    KIV_REQUIRE(register_atmos_support_cb(OnAtmos, &g_outcome) == 0);
    return true;
}

// An invocation of which the library sees only a reference. The library gives the reference back, with or without an
// answer.
class Invocation {
public:
    GDBusMethodInvocation* Give() { return reinterpret_cast<GDBusMethodInvocation*>(g_object_ref(object_.get())); }
    bool IsGivenBack() const { return object_->ref_count == 1; }

private:
    ObjectOwner<GObject> object_{static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr))};
};

Bytes PayloadOf(GVariant* arguments)
{
    if (arguments == nullptr || g_variant_is_of_type(arguments, G_VARIANT_TYPE("(ay)")) == FALSE) {
        return {};
    }
    // The serialised form of a tuple with one byte array is the bytes of that array.
    return {static_cast<const unsigned char*>(g_variant_get_data(arguments)), g_variant_get_size(arguments)};
}

void CheckReceivers(Bytes payload)
{
    const int eventId = IntAt(payload, 0);
    KIV_REQUIRE(g_outcome.subscriberCalls == (eventId != 0 ? 1 : 0));
    KIV_REQUIRE(g_outcome.atmosCalls == (eventId == NAMSERVICE_ATMOS_STATE ? 1 : 0));
    if (eventId == 0) {
        return;
    }
    const int length = std::min(IntAt(payload, 4), NAMSERVICE_EVENT_DATA_MAX);
    std::array<unsigned char, NAMSERVICE_EVENT_DATA_MAX> data{};
    std::ranges::copy(Part(payload, 8, static_cast<std::size_t>(std::max(length, 0))), data.begin());
    KIV_REQUIRE(g_outcome.eventId == eventId);
    KIV_REQUIRE(g_outcome.length == length);
    KIV_REQUIRE(g_outcome.data == data);
}

} // namespace

extern "C" {

// The linker puts this function in place of GIO's (--wrap).
void __wrap_g_dbus_method_invocation_return_value(GDBusMethodInvocation* invocation, GVariant* result)
{
    KIV_REQUIRE(result == nullptr);
    ++g_outcome.answers;
    g_object_unref(invocation);
}
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    [[maybe_unused]] static const bool isSubscribed = Subscribe();
    Input input(data, size);
    const char* const method = kCallees[input.Byte() % std::size(kCallees)];
    const Answer arguments = ReadAnswer(input);
    GVariant* const parameters = arguments.body.get();
    Invocation invocation;
    g_outcome = {};
    const Bytes payload = PayloadOf(parameters);
    if (method == nullptr) {
        KIV_REQUIRE(kiv::link::NamNotifySubscriber(parameters, invocation.Give()) != payload.empty());
    } else {
        kiv::link::NamClientReceiveHandleEvent(
            nullptr, ":1.1", "/", "client.interface", method, parameters, invocation.Give(), nullptr);
    }
    const bool isEvent = method == nullptr || std::string_view(method) == kCallees[0];
    KIV_REQUIRE(g_outcome.answers == (isEvent && parameters != nullptr ? 1 : 0));
    CheckReceivers(isEvent ? payload : Bytes());
    KIV_REQUIRE(invocation.IsGivenBack());
    return 0;
}
