// SPDX-License-Identifier: BSD-3-Clause
// "kxdcm_workload NAME COUNT" does one piece of work so many times, for a program that counts instructions; without
// arguments it prints the names. bench/instructions.py runs it.
#include "datasets.h"
#include "edits.h"
#include "sets.h"

#include "kxmap.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

namespace {

struct Workload {
    const char* name;
    int pieces; ///< what one repetition consists of: rules, loads, look-ups
    void (*run)(long count);
};

/// The edits on one dataset, over and over, and back: the way back costs the same whatever is measured.
template <typename Edit>
void overDataset(long count, std::size_t elements, Edit edit)
{
    const auto original = bench::makeDataset(elements);
    DcmDataset dataset(*original);
    for (long i = 0; i < count; ++i) {
        edit(dataset);
        bench::restore(dataset, *original);
    }
}

template <std::size_t elements>
void rules(long count)
{
    Mapping mapping(bench::kRules, "bench");
    overDataset(count, elements, [&mapping](DcmDataset& dataset) { bench::apply(mapping, dataset); });
}

template <std::size_t elements, void edit(DcmItem&)>
void byHand(long count)
{
    overDataset(count, elements, edit);
}

/// The same on a CT image, whose list stands at its end before each edit as it does when the image was just received.
template <typename Edit>
void overReceived(long count, Edit edit)
{
    const auto original = bench::loadCtImage();
    DcmDataset dataset(*original);
    for (long i = 0; i < count; ++i) {
        for (DcmObject* last = nullptr; (last = dataset.nextInContainer(last)) != nullptr;) {
        }
        edit(dataset);
        bench::restore(dataset, *original);
    }
}

void rulesReceived(long count)
{
    Mapping mapping(bench::kRules, "bench");
    overReceived(count, [&mapping](DcmDataset& dataset) { bench::apply(mapping, dataset); });
}

template <void edit(DcmItem&)>
void byHandReceived(long count)
{
    overReceived(count, edit);
}

void nothing(DcmItem& /*item*/) {}

void putAlone(DcmItem& item)
{
    bench::putAlone(item, bench::findTargets(item));
}

void oneRule(long count)
{
    Mapping mapping("(0010,0010)=toUpper((0010,0010))", "bench");
    const auto dataset = bench::makeDataset(60);
    for (long i = 0; i < count; ++i) bench::apply(mapping, *dataset);
}

void load(long count)
{
    const std::string text = bench::makeRules(bench::kEdits);
    for (long i = 0; i < count; ++i) Mapping(text.c_str(), "bench");
}

void lookUp(long count)
{
    const bench::MappingsFolder folder(1000);
    MappingSet set;
    MappingSession session;
    for (long i = 0; i < count; ++i) set.apply("TITLE500", session);
}

constexpr Workload kWorkloads[] = {
    {"restore", bench::kEdits, byHand<60, nothing>},
    {"search and put", bench::kEdits, byHand<60, putAlone>},
    {"in place", bench::kEdits, byHand<60, bench::editInPlace>},
    {"rules", bench::kEdits, rules<60>},
    {"rules, 600 elements", bench::kEdits, rules<600>},
    {"restore, received", bench::kEdits, byHandReceived<nothing>},
    {"in place, received", bench::kEdits, byHandReceived<bench::editInPlace>},
    {"rules, received", bench::kEdits, rulesReceived},
    {"one rule", 1, oneRule},
    {"load", bench::kEdits, load},
    {"look up", 1, lookUp},
};

int run(std::string_view name, long count)
{
    for (const Workload& workload : kWorkloads) {
        if (name != workload.name) continue;
        workload.run(count);
        return EXIT_SUCCESS;
    }
    std::fprintf(stderr, "kxdcm_workload: no work is called %s\n", std::string(name).c_str());
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    OFLog::configure(OFLogger::FATAL_LOG_LEVEL);
    if (argc != 3) {
        for (const Workload& workload : kWorkloads) std::printf("%s\t%d\n", workload.name, workload.pieces);
        return EXIT_SUCCESS;
    }
    try {
        return run(argv[1], std::strtol(argv[2], nullptr, 10));
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "kxdcm_workload: %s\n", problem.what());
        return EXIT_FAILURE;
    }
}
