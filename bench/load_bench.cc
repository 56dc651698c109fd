// SPDX-License-Identifier: BSD-3-Clause
// What loading costs, by the number of rules and of files, and finding the mapping of one AE title among many.
#include "edits.h"
#include "sets.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

namespace {

/// The clock stands while what was loaded is let go.
void load(benchmark::State& state)
{
    const std::string text = bench::makeRules(static_cast<std::size_t>(state.range(0)));
    for (auto unused : state) {
        const auto begin = std::chrono::steady_clock::now();
        const Mapping mapping(text.c_str(), "bench");
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void loadLua(benchmark::State& state)
{
    bench::LuaEdits edits;
    const std::string script = bench::LuaEdits::script(static_cast<std::size_t>(state.range(0)));
    for (auto unused : state) edits.load(script);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void loadFiles(benchmark::State& state)
{
    const bench::MappingsFolder folder(static_cast<std::size_t>(state.range(0)));
    for (auto unused : state) benchmark::DoNotOptimize(MappingSet());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void lookUp(benchmark::State& state)
{
    const bench::MappingsFolder folder(static_cast<std::size_t>(state.range(0)));
    MappingSet set;
    MappingSession session;
    const std::string last = set.mappings.empty() ? "" : set.mappings.back()->name;
    for (auto unused : state) set.apply(last.c_str(), session);
}

BENCHMARK(load)->ArgName("rules")->Arg(10)->Arg(1000)->Arg(100000)->UseManualTime();
BENCHMARK(loadLua)->ArgName("rules")->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(loadFiles)->ArgName("files")->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(lookUp)->ArgName("titles")->Arg(1)->Arg(10000);

} // namespace
