// SPDX-License-Identifier: BSD-3-Clause
// What a rule costs on a dataset, beside the same edit by hand and by script.
#include "allocations.h"
#include "datasets.h"
#include "edits.h"
#include "sets.h"

#include "kxmap.h"

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kCtImage = 0; // stands for the real image where a number of elements is asked
constexpr std::size_t kCopies = 8;  // few enough for the processor's cache, enough to hide the clock's own cost

/// Times `edit` over a few copies, which are put back as they were while the clock stands. Reports nanoseconds a rule.
template <typename Edit>
void overCopies(benchmark::State& state, Edit edit)
{
    const auto elements = static_cast<std::size_t>(state.range(0));
    const auto original = elements == kCtImage ? bench::loadCtImage() : bench::makeDataset(elements);
    std::vector<DcmDataset> copies(kCopies, *original);
    double seconds = 0;
    std::uint64_t allocations = 0;
    while (state.KeepRunningBatch(kCopies)) {
        std::array<bench::Targets, kCopies> targets{};
        for (std::size_t i = 0; i < kCopies; ++i) {
            bench::restore(copies[i], *original);
            targets[i] = bench::findTargets(copies[i]);
        }
        const std::uint64_t before = bench::allocations();
        const auto begin = std::chrono::steady_clock::now();
        for (std::size_t i = 0; i < kCopies; ++i) edit(copies[i], targets[i]);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(took.count());
        allocations += bench::allocations() - before;
        seconds += took.count();
    }
    const double total = static_cast<double>(state.iterations()) * bench::kEdits;
    state.counters["ns/rule"] = seconds * 1e9 / total;
    state.counters["allocs/rule"] = static_cast<double>(allocations) / total;
}

void rules(benchmark::State& state)
{
    Mapping mapping(bench::kRules, "bench");
    overCopies(state, [&mapping](DcmDataset& dataset, const bench::Targets&) { bench::apply(mapping, dataset); });
}

void inPlace(benchmark::State& state)
{
    overCopies(state, [](DcmDataset& dataset, const bench::Targets&) { bench::editInPlace(dataset); });
}

void direct(benchmark::State& state)
{
    overCopies(state, [](DcmDataset& dataset, const bench::Targets&) { bench::editDirectly(dataset); });
}

void lua(benchmark::State& state)
{
    bench::LuaEdits edits;
    overCopies(state, [&edits](DcmDataset& dataset, const bench::Targets&) { edits.edit(dataset); });
}

void putAlone(benchmark::State& state)
{
    overCopies(state, bench::putAlone);
}

/// One mapping of many rules on one dataset.
void mappingOf(benchmark::State& state)
{
    std::string text;
    for (std::int64_t i = 0; i < state.range(0); ++i) text += "(0010,0010)=toUpper((0010,0010))\n";
    Mapping mapping(text.c_str(), "bench");
    const auto dataset = bench::makeDataset(60);
    for (auto unused : state) bench::apply(mapping, *dataset);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// Times `edit` over datasets that nobody has used since they were made, as a server's are. Reports as overCopies().
template <typename Edit>
void overReceived(benchmark::State& state, Edit edit)
{
    const auto elements = static_cast<std::size_t>(state.range(0));
    const auto original = elements == kCtImage ? bench::loadCtImage() : bench::makeDataset(elements);
    double seconds = 0;
    while (state.KeepRunningBatch(kCopies)) {
        std::vector<DcmDataset> copies(kCopies, *original);
        const auto begin = std::chrono::steady_clock::now();
        for (DcmDataset& copy : copies) edit(copy);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(took.count());
        seconds += took.count();
    }
    state.counters["ns/rule"] = seconds * 1e9 / (static_cast<double>(state.iterations()) * bench::kEdits);
}

void rulesReceived(benchmark::State& state)
{
    Mapping mapping(bench::kRules, "bench");
    overReceived(state, [&mapping](DcmDataset& dataset) { bench::apply(mapping, dataset); });
}

void inPlaceReceived(benchmark::State& state)
{
    overReceived(state, [](DcmDataset& dataset) { bench::editInPlace(dataset); });
}

void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("elements")->Arg(60)->Arg(600)->Arg(6000)->Arg(kCtImage)->UseManualTime();
}

BENCHMARK(putAlone)->Apply(sizes);
BENCHMARK(inPlace)->Apply(sizes);
BENCHMARK(rules)->Apply(sizes);
BENCHMARK(direct)->Apply(sizes);
BENCHMARK(lua)->Apply(sizes);
BENCHMARK(inPlaceReceived)->Apply(sizes);
BENCHMARK(rulesReceived)->Apply(sizes);
BENCHMARK(mappingOf)->ArgName("rules")->Arg(1)->Arg(100)->Arg(10000);

} // namespace
