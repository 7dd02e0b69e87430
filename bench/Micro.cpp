// Measures the parts of the library that need no bus.

#include "src/link/ApiCall.h"
#include "src/link/Bytes.h"
#include "src/link/Log.h"
#include <KivServiceInterface.h>

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstring>
#include <vector>

namespace {

using namespace kiv::link;

constexpr int kMostRecords = 50'000;

std::vector<unsigned char> Records(const benchmark::State& state)
{
    return std::vector<unsigned char>(static_cast<std::size_t>(state.range(0)) * sizeof(CNetSpkNodeInfo), 's');
}

// Decodes into a new list each time.
void DecodeRecords(benchmark::State& state)
{
    const auto bytes = Records(state);
    for (auto _ : state) {
        std::vector<CNetSpkNodeInfo> list;
        AppendRecords(list, bytes);
        benchmark::DoNotOptimize(list.data());
    }
}

// Decodes into a list that has the capacity already.
void DecodeRecordsAgain(benchmark::State& state)
{
    const auto bytes = Records(state);
    std::vector<CNetSpkNodeInfo> list;
    for (auto _ : state) {
        list.clear();
        AppendRecords(list, bytes);
        benchmark::DoNotOptimize(list.data());
    }
}

// Copies the same bytes to new memory each time, for comparison. The function below copies them to the same memory.
void CopyRecords(benchmark::State& state)
{
    const auto bytes = Records(state);
    for (auto _ : state) {
        void* copy = std::malloc(bytes.size());
        std::memcpy(copy, bytes.data(), bytes.size());
        benchmark::DoNotOptimize(copy);
        benchmark::ClobberMemory();
        std::free(copy);
    }
}

void CopyRecordsAgain(benchmark::State& state)
{
    const auto bytes = Records(state);
    std::vector<unsigned char> copy(bytes.size());
    for (auto _ : state) {
        std::memcpy(copy.data(), bytes.data(), bytes.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
}

void LogBelowTheMinimum(benchmark::State& state)
{
    for (auto _ : state) {
        KIV_LOG_INFO("[%s] result[%d]", kApiTag, 7);
    }
}

void Sizes(benchmark::internal::Benchmark* benchmark)
{
    for (const int records : {1, 10, 100, 1000, 10'000, kMostRecords}) {
        benchmark->Arg(records);
    }
}

BENCHMARK(DecodeRecords)->Apply(Sizes);
BENCHMARK(CopyRecords)->Apply(Sizes);
BENCHMARK(DecodeRecordsAgain)->Apply(Sizes);
BENCHMARK(CopyRecordsAgain)->Apply(Sizes);
BENCHMARK(LogBelowTheMinimum);

} // namespace

int main(int argc, char** argv)
{
    // New memory comes from the kernel each time, and not from what the heap has kept.
    mallopt(M_MMAP_THRESHOLD, 64 * 1024);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
