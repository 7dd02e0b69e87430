// Compares the peers block by block in one run, on the bus of the environment, and writes what it measured as JSON.

#include "Control.h"
#include "Measure.h"
#include "Names.h"
#include "peers/EventPeer.h"
#include "tools/sandbox/BusTrace.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kiv::bench {

namespace {

using nlohmann::json;

constexpr std::size_t kMostCallers = 16;
constexpr std::size_t kCallers[] = {1, 2, 4, 8, 16};
constexpr std::size_t kRecords[] = {0, 1, 10, 100, 1000, 10'000, 50'000};
constexpr unsigned kSubscribers[] = {0, 1, 10, 100, 1000};
constexpr unsigned kOutstanding[] = {1, 64};
constexpr const char* kBaseline = "GIO";

struct Options {
    std::vector<std::string> libraries; // NAME=FILE
    std::vector<std::string> suites = {"callers", "shapes", "lists", "events"};
    std::vector<std::string> peers;
    std::string output;
    std::string alone; // only this peer makes calls, for a tool that watches the process
    int rounds = 25;
    int blockMs = 25;
    int calls = 100;
};

struct Competitor {
    std::string name;
    std::function<std::unique_ptr<Peer>()> make;
    Callers callers = {};
};

struct Library {
    std::string name;
    std::string file;
};

Library Parse(const std::string& option)
{
    const std::size_t at = option.find('=');
    if (at == std::string::npos) {
        throw std::runtime_error(option + ": NAME=FILE is wanted");
    }
    return {option.substr(0, at), option.substr(at + 1)};
}

bool IsWanted(const std::vector<std::string>& wanted, const std::string& name)
{
    return wanted.empty() || std::ranges::count(wanted, name) != 0;
}

std::vector<Competitor> Competitors(const Options& options)
{
    std::vector<Competitor> all;
    for (const std::string& option : options.libraries) {
        const Library library = Parse(option);
        all.push_back({library.name, [library] { return MakeLibraryPeer(library.file); }});
    }
    const Competitor others[] = {{kBaseline, MakeGioPeer},  {"gdbus-codegen", MakeCodegenPeer},
                                 {"Qt D-Bus", MakeQtPeer},  {"libdbus", MakeLibdbusPeer},
                                 {"sd-bus", MakeSdBusPeer}, {"sdbus-c++", MakeSdbusCppPeer}};
    for (const Competitor& other : others) {
        if (other.name == kBaseline || IsWanted(options.peers, other.name)) {
            all.push_back({other.name, other.make});
        }
    }
    return all;
}

// Returns the calls that a peer sends, as the bus sees them.
std::vector<std::string> Sent(sandbox::BusTrace& trace, Peer& peer, const Request& request)
{
    trace.Clear();
    peer.Call(request);
    std::vector<std::string> sent;
    for (const sandbox::Message& message : trace.Messages()) {
        // The library's monitor thread may still be requesting its name.
        const bool isNoCall = message.destination == kBusName && message.member != kOwnerMethod;
        if (message.type == G_DBUS_MESSAGE_TYPE_METHOD_CALL && !isNoCall) {
            // GIO's proxies call a server by its unique name.
            const bool isUnique = message.destination.starts_with(':');
            sent.push_back(
                (isUnique ? kServerName : message.destination) + message.path + " " + message.interface + "." +
                message.member + message.BodyText() + " " + std::to_string(message.flags));
        }
    }
    return sent;
}

long ExpectedAnswer(const Request& request)
{
    switch (request.output) {
    case Output::kInt:
        return 7;
    case Output::kIgnored:
    case Output::kBytes:
        return 0;
    default:
        return 1;
    }
}

// Throws unless all peers send the same calls and return the same answer, because otherwise they could not be compared.
// The first call is not checked, because a peer may do more in it.
void CheckEquality(const std::vector<Competitor>& competitors)
{
    sandbox::BusTrace trace(std::getenv("DBUS_SYSTEM_BUS_ADDRESS"));
    std::vector<Request> requests(kScalarRequests.begin(), kScalarRequests.end());
    requests.push_back(kListRequest);
    for (const Request& request : requests) {
        // These calls are not compared, because the library sends its process id where the others send 0.
        const bool comparable = request.output != Output::kText;
        std::vector<std::string> expected;
        for (const Competitor& competitor : competitors) {
            Peer& peer = *competitor.callers.front();
            if (peer.Call(request) != ExpectedAnswer(request)) {
                throw std::runtime_error(competitor.name + ": wrong answer to " + request.method);
            }
            const std::vector<std::string> sent = Sent(trace, peer, request);
            expected = expected.empty() ? sent : expected;
            if (sent.size() != 4 || (comparable && sent != expected)) {
                std::string all = competitor.name + " does not send what the others do:";
                for (const std::string& line : sent) {
                    all += "\n  " + line;
                }
                throw std::runtime_error(all);
            }
        }
    }
}

json ToJson(const Usage& usage)
{
    return {{"wall", usage.wall},     {"user", usage.user},     {"system", usage.system},
            {"daemon", usage.daemon}, {"server", usage.server}, {"switches", usage.switches}};
}

// Starts each round with another competitor, so that none always follows the same one.
template <typename Function>
void Interleave(int rounds, std::size_t count, Function&& function)
{
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < count; ++i) {
            function((i + static_cast<std::size_t>(round)) % count);
        }
    }
}

class Driver {
public:
    explicit Driver(const Options& options)
        : options_(options), meter_(control_.ProcessOf(kBusName), control_.ProcessOf(kServerName)),
          competitors_(Competitors(options))
    {
        for (Competitor& competitor : competitors_) {
            for (std::size_t i = 0; i < kMostCallers; ++i) {
                competitor.callers.push_back(competitor.make());
            }
        }
    }

    json Run()
    {
        CheckEquality(competitors_);
        json calls = json::array();
        json events = json::array();
        if (IsWanted(options_.suites, "callers")) {
            for (const std::size_t callers : kCallers) {
                MeasureCalls(calls, "callers", kScalarRequests.front(), callers);
            }
        }
        if (IsWanted(options_.suites, "shapes")) {
            for (const Request& request : kScalarRequests) {
                MeasureCalls(calls, "shapes", request, 1);
            }
        }
        if (IsWanted(options_.suites, "lists")) {
            for (const std::size_t records : kRecords) {
                control_.SetListBytes(records * kRecordSize);
                MeasureCalls(calls, "lists", kListRequest, 1, records);
            }
        }
        if (IsWanted(options_.suites, "events")) {
            MeasureEvents(events);
        }
        return {{"machine", Machine()}, {"calls", calls}, {"events", events}};
    }

    // Makes the calls of one peer alone, for a tool that counts from outside what this process does.
    void CallAlone() const
    {
        const auto found = std::ranges::find(competitors_, options_.alone, &Competitor::name);
        if (found == competitors_.end()) {
            throw std::runtime_error(options_.alone + ": no such peer");
        }
        for (int i = 0; i < options_.calls; ++i) {
            found->callers.front()->Call(kScalarRequests.front());
        }
    }

private:
    // Returns how many operations of this duration fill a block.
    int PerBlock(double nanoseconds) const
    {
        return std::max(3, static_cast<int>(options_.blockMs * 1e6 / nanoseconds));
    }

    void
    MeasureCalls(json& results, const char* suite, const Request& request, std::size_t active, std::size_t records = 0)
    {
        std::fprintf(stderr, "%s: %s, %zu callers, %zu records\n", suite, request.method, active, records);
        int calls = 3;
        for (const Competitor& competitor : competitors_) { // the first blocks do not count
            const Block first = Measure(meter_, competitor.callers, active, request, calls);
            if (competitor.name == kBaseline) {
                calls = PerBlock(first.perCall.wall * static_cast<double>(active));
            }
        }
        std::vector<json> blocks(competitors_.size(), json::array());
        std::vector<std::vector<float>> latencies(competitors_.size());
        Interleave(options_.rounds, competitors_.size(), [&](std::size_t i) {
            const Block block = Measure(meter_, competitors_[i].callers, active, request, calls);
            blocks[i].push_back(ToJson(block.perCall));
            if (active == 1 && std::string_view(suite) == "callers") {
                latencies[i].insert(latencies[i].end(), block.latencies.begin(), block.latencies.end());
            }
        });
        for (std::size_t i = 0; i < competitors_.size(); ++i) {
            results.push_back(
                {{"suite", suite},
                 {"peer", competitors_[i].name},
                 {"method", request.method},
                 {"shape", request.shape},
                 {"callers", active},
                 {"records", records},
                 {"calls per block", calls},
                 {"blocks", blocks[i]},
                 {"latencies", latencies[i]}});
        }
    }

    struct EventCompetitor {
        std::string name;
        std::unique_ptr<EventPeer> peer;
    };

    Usage PushEvents(const EventPeer& peer, unsigned subscribers, unsigned outstanding, unsigned count) const
    {
        ExpectEvents(static_cast<long>(subscribers) * count);
        const Usage before = meter_.Read();
        control_.Push(peer.Id(), count, outstanding);
        WaitForEvents();
        return (meter_.Read() - before) / count;
    }

    void MeasureEvents(json& results)
    {
        std::vector<EventCompetitor> competitors;
        if (!options_.libraries.empty()) {
            const Library library = Parse(options_.libraries.front());
            competitors.push_back({library.name, MakeLibraryEvents(library.file)});
        }
        competitors.push_back({kBaseline, MakeGioEvents()});
        competitors.push_back({"sd-bus", MakeSdBusEvents()});
        for (const unsigned subscribers : kSubscribers) {
            for (const EventCompetitor& competitor : competitors) {
                competitor.peer->Subscribe(subscribers, OnEvent);
                control_.WaitForClient(competitor.peer->Id());
            }
            for (const unsigned outstanding : kOutstanding) {
                MeasureEvents(results, competitors, subscribers, outstanding);
            }
        }
        for (const EventCompetitor& competitor : competitors) {
            competitor.peer->Subscribe(0, OnEvent);
        }
    }

    void MeasureEvents(
        json& results, const std::vector<EventCompetitor>& competitors, unsigned subscribers, unsigned outstanding)
    {
        std::fprintf(stderr, "events: %u subscribers, %u outstanding\n", subscribers, outstanding);
        unsigned count = 2 * outstanding;
        for (const EventCompetitor& competitor : competitors) {
            const Usage first = PushEvents(*competitor.peer, subscribers, outstanding, count);
            if (competitor.name == kBaseline) {
                count = static_cast<unsigned>(PerBlock(first.wall)) + outstanding;
            }
        }
        std::vector<json> blocks(competitors.size(), json::array());
        Interleave(options_.rounds, competitors.size(), [&](std::size_t i) {
            blocks[i].push_back(ToJson(PushEvents(*competitors[i].peer, subscribers, outstanding, count)));
        });
        for (std::size_t i = 0; i < competitors.size(); ++i) {
            results.push_back(
                {{"peer", competitors[i].name},
                 {"subscribers", subscribers},
                 {"outstanding", outstanding},
                 {"events per block", count},
                 {"blocks", blocks[i]}});
        }
    }

    static json Machine()
    {
        cpu_set_t allowed;
        CPU_ZERO(&allowed);
        sched_getaffinity(0, sizeof allowed, &allowed);
        return {
            {"processors used", CPU_COUNT(&allowed)},
            {"processors", sysconf(_SC_NPROCESSORS_ONLN)},
            {"glib", std::to_string(glib_major_version) + "." + std::to_string(glib_minor_version) + "." +
                         std::to_string(glib_micro_version)}};
    }

    const Options& options_;
    const Control control_;
    const Meter meter_;
    std::vector<Competitor> competitors_;
};

Options ReadOptions(CLI::App& app, int argc, char** argv)
{
    Options options;
    app.add_option("--library", options.libraries, "a build of the library, NAME=FILE; may be repeated")
        ->option_text("NAME=FILE");
    app.add_option("--suite", options.suites, "what to measure: callers, shapes, lists, events");
    app.add_option("--peer", options.peers, "the peers beside the library and GIO; all if not given");
    app.add_option("--rounds", options.rounds, "blocks of each peer in each case");
    app.add_option("--block-ms", options.blockMs, "about how long a block takes with GIO");
    app.add_option("--output", options.output, "the JSON file");
    app.add_option("--alone", options.alone, "have only this peer make calls, and measure nothing");
    app.add_option("--calls", options.calls, "how many calls it makes then");
    app.parse(argc, argv);
    return options;
}

int Main(int argc, char** argv)
{
    CLI::App app("Compares D-Bus clients.", "kiv-bench");
    try {
        const Options options = ReadOptions(app, argc, argv);
        Driver driver(options);
        if (!options.alone.empty()) {
            driver.CallAlone();
            return EXIT_SUCCESS;
        }
        std::ofstream(options.output) << driver.Run();
        return EXIT_SUCCESS;
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kiv-bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}

} // namespace

} // namespace kiv::bench

int main(int argc, char** argv)
{
    return kiv::bench::Main(argc, argv);
}
