// A host that runs long. Calls every function and receives events many times, with and without faults of the server,
// and checks that nothing in its process grows. Runs on a bus with the simulator.

#include "KivServiceInterface.h"
#include "endurance/EveryFunction.h"
#include "endurance/Heap.h"
#include "src/link/Owners.h"
#include "src/platform/Platform.h"
#include "support/Server.h"
#include "support/Wait.h"

#include <unistd.h>

#include <array>
#include <barrier>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <forward_list>
#include <fstream>
#include <future>
#include <iterator>
#include <latch>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using kiv::test::Payload;
using kiv::test::ServerControl;
using kiv::test::WaitUntil;

namespace kiv::endurance {

namespace {

constexpr int kRounds = 3;
constexpr int kCallers = 4;
constexpr int kFirstCallers = 16;
constexpr unsigned kEventsAtOnce = 100;

constexpr const char* kIdMethod = "check_dbus_connection";

// A fault of the simulated server.
struct Fault {
    const char* text;
    bool ofId; // whether the fault is of the query for the id, or else of all other methods
};

constexpr Fault kFaults[] = {
    {"{'error': <'org.example.Refused'>, 'message': <'no'>}", false},
    {"{'reply': <'()'>}", false},
    {"{'reply': <('x',)>}", false},
    {"{'reply': <(1.5,)>}", false},
    {"{'reply': <(7, 7)>}", false},
    {"{'reply': <([1, 2],)>}", false},
    {"{'reply': <(@ay [],)>}", false},
    {"{'reply': <(b'abc',)>}", false},
    {"{'reply': <(true,)>}", false},
    {"{'error': <'org.example.Refused'>, 'message': <'no'>, 'every': <uint32 2>}", true},
    {"{'reply': <(7,)>, 'every': <uint32 2>}", true},
};

// There is a phase for each fault, and a last one without a fault.
constexpr int kPhases = std::size(kFaults) + 1;

std::atomic<long> g_received;
bool g_leakIsPlanted;
std::forward_list<char> g_leaked; // used on the monitor thread

void OnEvent(int /*eventId*/, void* /*data*/, int /*length*/)
{
    ++g_received;
    if (g_leakIsPlanted) {
        g_leaked.push_front('x');
    }
}

void OnAtmos(int /*supported*/, void* /*userData*/)
{
    ++g_received;
}

std::set<std::string> MethodsOfTheServer()
{
    std::ifstream file(KIV_SERVER_XML);
    const std::string xml(std::istreambuf_iterator<char>(file), {});
    const link::NodeInfoOwner node(g_dbus_node_info_new_for_xml(xml.c_str(), nullptr));
    if (node == nullptr) {
        throw std::runtime_error("no introspection XML in " KIV_SERVER_XML);
    }
    std::set<std::string> names;
    for (GDBusMethodInfo** method = node->interfaces[0]->methods; *method != nullptr; ++method) {
        names.insert((*method)->name);
    }
    return names;
}

void RequireThatEveryMethodIsCalled(ServerControl& server)
{
    server.ForgetCalls();
    CallEveryFunction();
    std::set<std::string> missing = MethodsOfTheServer();
    for (const std::string& method : server.Methods()) {
        missing.erase(method);
    }
    if (!missing.empty()) {
        throw std::runtime_error("no function calls " + *missing.begin());
    }
}

std::string BusAddress()
{
    const char* const address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (address == nullptr) {
        throw std::runtime_error("to be run in kiv-sandbox");
    }
    return address;
}

void SetUpPhase(ServerControl& server, int phase)
{
    server.ClearFaults();
    if (phase == kPhases - 1) {
        return;
    }
    const Fault& fault = kFaults[phase];
    for (const std::string& method : MethodsOfTheServer()) {
        if ((method == kIdMethod) == fault.ofId) {
            server.SetFault(method, fault.text);
        }
    }
}

// Runs an action on several threads at the same time.
template <typename Action>
void InParallel(int threads, const Action& action)
{
    std::latch ready(threads);
    std::vector<std::future<void>> ends;
    for (int count = 0; count < threads; ++count) {
        ends.push_back(std::async(std::launch::async, [&] {
            ready.arrive_and_wait();
            action();
        }));
    }
    for (std::future<void>& end : ends) {
        end.get();
    }
}

// Repeats a call until it is answered, because 8 s may not be enough on a busy machine.
void CallUntilAnswered()
{
    WaitUntil("a call to be answered", [] { return StopNetworkSpeaker(0) == 0; });
}

// Makes this number of calls, or slightly more.
void MakeCalls(ServerControl& server, long count)
{
    const long passes = 1 + count / (static_cast<long>(kPhases) * kCallers * FunctionCount());
    int phase = 0;
    std::barrier next(kCallers, [&]() noexcept { SetUpPhase(server, phase++); });
    // All phases use the same threads, because GIO notes each thread that uses a connection, and forgets none.
    InParallel(kCallers, [&] {
        for (int done = 0; done < kPhases; ++done) {
            next.arrive_and_wait();
            for (long pass = 0; pass < passes; ++pass) {
                CallEveryFunction();
            }
        }
    });
}

std::vector<std::vector<unsigned char>> Payloads()
{
    const std::vector<unsigned char> tooLong(5000, 'x');
    return {
        Payload(7, 3, {1, 2, 3}),
        Payload(7, 5000, tooLong),
        Payload(7, 10, {1}),
        Payload(7, -1, {}),
        Payload(NAMSERVICE_ATMOS_STATE, 4, {1, 0, 0, 0}),
        Payload(NAMSERVICE_EXIT_STATE, 0, {}),
        Payload(0, 3, {1, 2, 3}),
        {1, 2, 3},
        {},
    };
}

// Makes the server push this number of events, or slightly more.
void ReceiveEvents(long count)
{
    ServerControl server(BusAddress());
    while (count > 0) {
        for (const auto& payload : Payloads()) {
            if (server.SendPayloads(payload, kEventsAtOnce) != kEventsAtOnce) {
                throw std::runtime_error("an event was not answered");
            }
            count -= kEventsAtOnce;
        }
    }
}

void CallAndReceive(ServerControl& server, long calls, long events)
{
    const long before = g_received;
    auto received = std::async(std::launch::async, ReceiveEvents, events);
    MakeCalls(server, calls);
    received.get();
    if (g_received == before) {
        throw std::runtime_error("no event arrived");
    }
}

// --- Figures of the process ---

struct Kind {
    const char* name;
    // The most by which the figure may grow, however many calls and events there are. GLib's tables may once have been
    // fuller, GLib notes threads such as the launch threads, and the C library keeps data of threads.
    long allowance;
};

constexpr std::array kKinds = {
    Kind{"heap bytes", 32'768}, Kind{"heap blocks", 6}, Kind{"connection references", 0}, Kind{"open files", 0},
    Kind{"threads", 0}};
using Figures = std::array<long, kKinds.size()>;

long Entries(const char* directory)
{
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

Figures Look()
{
    return {
        g_heap.bytes, g_heap.blocks, static_cast<long>(G_OBJECT(CNSGdbus::m_pInstance->m_pConnection)->ref_count),
        Entries("/proc/self/fd"), Entries("/proc/self/task")};
}

// Returns how often the other threads have run so far, or nothing if one of them runs now.
std::optional<long> RunsOfSleepers()
{
    long runs = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        if (thread.path().filename() == std::to_string(gettid())) {
            continue;
        }
        std::ifstream status(thread.path() / "status");
        std::string state;
        for (std::string word; status >> word;) {
            if (word == "State:") {
                status >> state;
            } else if (word.ends_with("voluntary_ctxt_switches:")) {
                long count = 0;
                status >> count;
                runs += count;
            }
        }
        if (state != "S") {
            return std::nullopt;
        }
    }
    return runs;
}

// Reads the variable without a lock, as a host can. The library writes it under a lock of its own.
__attribute__((no_sanitize("thread"))) bool IsLaunching()
{
    return *static_cast<const volatile pthread_t*>(&m_launchthreadId) != 0;
}

// Returns the figures at a moment at which no call or event is under way.
Figures LookWhenAllIsQuiet()
{
    WaitUntil("the launch thread to end", [] { return !IsLaunching(); });
    CallUntilAnswered(); // the library keeps the last reply, so it must be the same one each time
    Figures figures{};
    WaitUntil("all threads to sleep", [&] {
        const std::optional<long> before = RunsOfSleepers();
        figures = Look();
        return before && before == RunsOfSleepers();
    });
    return figures;
}

// A figure without a value is not counted.
void Print(const char* when, const Figures& figures)
{
    std::printf("%-8s", when);
    for (const long figure : figures) {
        std::printf("  %21s", figure != 0 ? std::to_string(figure).c_str() : "-");
    }
    std::printf("\n");
    std::fflush(stdout);
}

bool NothingGrew(const Figures& first, const Figures& last)
{
    bool nothing = true;
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
        const long growth = last[i] - first[i];
        if (growth > kKinds[i].allowance) {
            std::printf("%s: %ld more\n", kKinds[i].name, growth);
            nothing = false;
        }
    }
    return nothing;
}

int Run(long calls, long events)
{
    std::printf("%ld calls and %ld events at least\n        ", calls, events);
    for (const Kind& kind : kKinds) {
        std::printf("  %21s", kind.name);
    }
    std::printf("\n");

    InParallel(kFirstCallers, CallUntilAnswered);
    ServerControl server(BusAddress());
    server.WaitForOwner("org.lumra.tv.networkspeaker.client.tv_" + std::to_string(getpid()));
    RequireThatEveryMethodIsCalled(server);
    SubscribeNamServiceCallback("endurance", OnEvent);
    register_atmos_support_cb(OnAtmos, nullptr);
    CallAndReceive(server, 1, 1);

    const Figures first = LookWhenAllIsQuiet();
    Print("at first", first);
    Figures last = first;
    for (int round = 0; round < kRounds; ++round) {
        CallAndReceive(server, calls / kRounds, 1 + events / kRounds);
        last = LookWhenAllIsQuiet();
        Print("then", last);
    }
    if (CNSGdbus::m_pInstance->m_DestroyMessageMonitor() != 0) {
        throw std::runtime_error("the monitor thread was not ended");
    }
    return NothingGrew(first, last) ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

} // namespace kiv::endurance

// The platform formats every line and keeps none.
int __dlog_print(int /*logId*/, int /*priority*/, const char* /*tag*/, const char* format, ...)
{
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    return length;
}

int system_info_get_custom_bool(const char* /*key*/, bool* value)
{
    *value = true;
    return 0;
}

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fputs("endurance_host CALLS EVENTS [--plant-leak]\n", stderr);
        return 2;
    }
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING));
    kiv::endurance::g_leakIsPlanted = argc == 4 && std::string_view(argv[3]) == "--plant-leak";
    try {
        return kiv::endurance::Run(std::atol(argv[1]), std::atol(argv[2]));
    } catch (const std::exception& error) {
        std::printf("endurance_host: %s\n", error.what());
        return 2;
    }
}
