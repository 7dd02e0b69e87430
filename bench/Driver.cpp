// Compares the peers block by block in one run, on the bus of the environment, and writes what it measured as JSON.

#include "bench/Control.h"
#include "bench/Measure.h"
#include "bench/Names.h"
#include "bench/peers/EventPeer.h"
#include "bench/peers/Library.h"
#include "tools/sandbox/BusTrace.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::bench {

namespace {

using nlohmann::json;

constexpr std::size_t kMostCallers = 16;
constexpr std::size_t kCallers[] = {1, 2, 4, 8, 16};
constexpr std::size_t kRecords[] = {0, 1, 10, 100, 1000, 10'000, 50'000};
constexpr unsigned kSubscribers[] = {0, 1, 10, 100, 1000};
constexpr unsigned kOutstanding[] = {1, 64};
constexpr double kBlockNs = 25e6; // about how long a block takes with the baseline
constexpr const char* kBaseline = "GIO";

struct Options {
    std::string library;
    std::string output;
    std::string alone; // only this peer makes calls, for a tool that watches the process
    std::string cold;  // only this peer is measured, from its first use on
    int rounds = 25;
    int calls = 100;
};

struct Competitor {
    std::string name;
    std::function<std::unique_ptr<Peer>()> make;
    Callers callers = {};
};

struct EventCompetitor {
    std::string name;
    std::unique_ptr<EventPeer> peer;
};

std::vector<Competitor> Competitors(const std::string& library)
{
    std::vector<Competitor> all;
    all.push_back({"library", [library] { return MakeLibraryPeer(library); }});
    all.push_back({kBaseline, MakeGioPeer});
    all.push_back({"libdbus", MakeLibdbusPeer});
    all.push_back({"sd-bus", MakeSdBusPeer});
    return all;
}

std::vector<EventCompetitor> EventCompetitors(const std::string& library)
{
    std::vector<EventCompetitor> all;
    all.push_back({"library", MakeLibraryEvents(library)});
    all.push_back({kBaseline, MakeGioEvents()});
    all.push_back({"sd-bus", MakeSdBusEvents()});
    return all;
}

// Makes the calls of one peer alone, for a tool that counts from outside what this process does.
void CallAlone(const Options& options)
{
    const std::vector<Competitor> all = Competitors(options.library);
    const auto found = std::ranges::find(all, options.alone, &Competitor::name);
    if (found == all.end()) {
        throw std::runtime_error(options.alone + ": no such peer");
    }
    const std::unique_ptr<Peer> peer = found->make();
    for (int i = 0; i < options.calls; ++i) {
        peer->Call(kScalarRequests.front());
    }
}

// Measures the first use in this process, which has not used the bus yet.
json ColdStart(const Options& options)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    const auto taken = [start] { return std::chrono::duration<double, std::milli>(Clock::now() - start).count(); };
    const bool isLibrary = options.cold != kBaseline;
    json times = {{"peer", options.cold}};
    if (isLibrary) {
        const LoadedLibrary loaded(options.library);
    }
    times["loaded"] = taken();
    const std::unique_ptr<Peer> peer = isLibrary ? MakeLibraryPeer(options.library) : MakeGioPeer();
    peer->Call(kScalarRequests.front());
    times["first call"] = taken();
    const std::unique_ptr<EventPeer> events = isLibrary ? MakeLibraryEvents(options.library) : MakeGioEvents();
    events->Subscribe(1, OnEvent);
    const Control control;
    control.WaitForClient(events->Id());
    ExpectEvents(1);
    control.Push(events->Id(), 1, 1);
    WaitForEvents();
    times["first event"] = taken();
    return times;
}

// Returns the calls that a peer sends, as the bus sees them.
std::vector<std::string> Sent(sandbox::BusTrace& trace, Peer& peer, const Request& request)
{
    trace.Clear();
    peer.Call(request);
    std::vector<std::string> sent;
    for (const sandbox::Message& message : trace.Messages()) {
        // The library's monitor thread may still be requesting its name.
        const bool isNoCall = message.destination == kBus.name && message.member != kOwnerRequest.method;
        if (message.type == G_DBUS_MESSAGE_TYPE_METHOD_CALL && !isNoCall) {
            sent.push_back(
                message.destination + message.path + " " + message.interface + "." + message.member +
                message.BodyText() + " " + std::to_string(message.flags));
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
    json figures;
    for (std::size_t i = 0; i < usage.size(); ++i) {
        figures[kFigures[i]] = usage[i];
    }
    return figures;
}

// Returns how many operations of this duration fill a block.
int PerBlock(double nanoseconds)
{
    return std::max(3, static_cast<int>(kBlockNs / nanoseconds));
}

class Driver {
public:
    explicit Driver(const Options& options)
        : options_(options), meter_(control_.ProcessOf(kBus.name), control_.ProcessOf(kServer.name)),
          competitors_(Competitors(options.library))
    {
        for (Competitor& competitor : competitors_) {
            for (std::size_t i = 0; i < kMostCallers; ++i) {
                competitor.callers.push_back(competitor.make());
            }
        }
    }

    json Run() const
    {
        CheckEquality(competitors_);
        json calls = json::array();
        for (const std::size_t callers : kCallers) {
            MeasureCalls(calls, "callers", kScalarRequests.front(), callers);
        }
        for (const Request& request : kScalarRequests) {
            MeasureCalls(calls, "shapes", request, 1);
        }
        for (const std::size_t records : kRecords) {
            control_.SetListBytes(records * kRecordSize);
            MeasureCalls(calls, "lists", kListRequest, 1, records);
        }
        const std::string glib = std::to_string(glib_major_version) + "." + std::to_string(glib_minor_version) + "." +
                                 std::to_string(glib_micro_version);
        const json machine = {{"processors", sysconf(_SC_NPROCESSORS_ONLN)}, {"glib", glib}};
        return {{"machine", machine}, {"calls", calls}, {"events", MeasureEvents()}};
    }

private:
    // Measures the blocks of all competitors. Starts each round with another competitor, so that none always follows
    // the same one.
    template <typename MeasureBlock>
    std::vector<json> Blocks(std::size_t competitors, const MeasureBlock& measure) const
    {
        std::vector<json> blocks(competitors, json::array());
        for (int round = 0; round < options_.rounds; ++round) {
            for (std::size_t i = 0; i < competitors; ++i) {
                const std::size_t turn = (i + static_cast<std::size_t>(round)) % competitors;
                blocks[turn].push_back(ToJson(measure(turn)));
            }
        }
        return blocks;
    }

    void MeasureCalls(
        json& results, std::string_view suite, const Request& request, std::size_t active,
        std::size_t records = 0) const
    {
        std::fprintf(stderr, "%s: %s, %zu callers, %zu records\n", suite.data(), request.method, active, records);
        int calls = 3;
        for (const Competitor& competitor : competitors_) { // the first blocks do not count
            const Block first = Measure(meter_, competitor.callers, active, request, calls);
            if (competitor.name == kBaseline) {
                calls = PerBlock(first.perCall[0] * static_cast<double>(active));
            }
        }
        std::vector<std::vector<float>> latencies(competitors_.size());
        const std::vector<json> blocks = Blocks(competitors_.size(), [&](std::size_t i) {
            const Block block = Measure(meter_, competitors_[i].callers, active, request, calls);
            if (active == 1 && suite == "callers") {
                latencies[i].insert(latencies[i].end(), block.latencies.begin(), block.latencies.end());
            }
            return block.perCall;
        });
        for (std::size_t i = 0; i < competitors_.size(); ++i) {
            results.push_back(
                {{"suite", suite},
                 {"peer", competitors_[i].name},
                 {"shape", request.shape},
                 {"callers", active},
                 {"records", records},
                 {"blocks", blocks[i]},
                 {"latencies", latencies[i]}});
        }
    }

    json MeasureEvents() const
    {
        const std::vector<EventCompetitor> competitors = EventCompetitors(options_.library);
        json results = json::array();
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
        return results;
    }

    void MeasureEvents(
        json& results, const std::vector<EventCompetitor>& competitors, unsigned subscribers,
        unsigned outstanding) const
    {
        std::fprintf(stderr, "events: %u subscribers, %u outstanding\n", subscribers, outstanding);
        unsigned count = 2 * outstanding;
        const auto push = [&](const EventCompetitor& competitor) -> Usage {
            ExpectEvents(static_cast<long>(subscribers) * count);
            const Usage before = meter_.Read();
            control_.Push(competitor.peer->Id(), count, outstanding);
            WaitForEvents();
            return (meter_.Read() - before) / static_cast<double>(count);
        };
        for (const EventCompetitor& competitor : competitors) {
            const Usage first = push(competitor);
            if (competitor.name == kBaseline) {
                count = static_cast<unsigned>(PerBlock(first[0])) + outstanding;
            }
        }
        const std::vector<json> blocks =
            Blocks(competitors.size(), [&](std::size_t i) { return push(competitors[i]); });
        for (std::size_t i = 0; i < competitors.size(); ++i) {
            results.push_back(
                {{"peer", competitors[i].name},
                 {"subscribers", subscribers},
                 {"outstanding", outstanding},
                 {"blocks", blocks[i]}});
        }
    }

    const Options& options_;
    const Control control_;
    const Meter meter_;
    std::vector<Competitor> competitors_;
};

Options ReadOptions(CLI::App& app, int argc, char** argv)
{
    Options options;
    app.add_option("--library", options.library, "the library's file")->required();
    app.add_option("--rounds", options.rounds, "blocks of each peer in each case");
    app.add_option("--output", options.output, "the JSON file");
    app.add_option("--cold", options.cold, "measure only the first use of this peer: library or GIO")
        ->check(CLI::IsMember({"library", kBaseline}));
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
        if (!options.cold.empty()) {
            std::printf("%s\n", ColdStart(options).dump().c_str());
        } else if (!options.alone.empty()) {
            CallAlone(options);
        } else {
            std::ofstream(options.output) << Driver(options).Run();
        }
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
