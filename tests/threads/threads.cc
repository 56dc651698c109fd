// SPDX-License-Identifier: BSD-3-Clause
// What kxmap.h promises about threads, as a program for the thread sanitizer: threads that load sets of their own, one
// at a time, and beside them, without a lock, threads that apply their own sets or one in common. It also runs plainly,
// and then it checks the outcomes alone.
#include "kxmap.h"
#include "support/sample.h"

#include <dcmtk/dcmdata/dctk.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <latch>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

constexpr int kThreads = 4;
constexpr int kAppliers = 8;
constexpr int kRounds = 200;

constexpr const char* kFreeRules = R"((0010,0010)=concat(toUpper((0010,0010))," ",strlen((0010,0010)))
(0075,1001)=SEQ(0040,0275,1,0040,0007)
SEQ(0040,0275,0,0040,0008,1,0008,0100)=codestring((0010,0020))
(0042,0010)=rnd(10,(0010,0020))
(0009,1002)=(0042,0011)
(0020,0013)=add((0020,0013),codenumber(1234))
USER(f)=translate((0008,0060),NULL(),"US","ultrasound")
$(@age)=dicomAge(20200229,19700101)
(0008,1140)=(0040,0275)
(0028,0009)=if(between($(@age),0,100),NULL(),split((0008,0008),"\\",2))
)";

std::mutex parsing;           // what the caller owes: one lock around parsing
std::atomic<int> failures{0}; // of all threads

void expect(bool holds, const char* what)
{
    if (holds) return;
    ++failures;
    std::fprintf(stderr, "threads: does not hold: %s\n", what);
}

/// A folder for DICOM_VAR with two mappings, one of them with a bad line; removed at the end.
class Root {
public:
    Root()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kxthreads-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        path_ = pattern;
        std::filesystem::create_directories(path_ / "mappings/global");
        write("global/pre.map", "$(@id)=(0010,0020)\n(0010,0010)=toUpper((0010,0010))\n");
        write("AE.map", "(0010,0020)=concat($(@id),\"-\",rnd(1000))\n(0010,0030)=foo(1)\n(0075,1001)=$(@id)\n"
                        "SEQ(0040,0275,0,0040,0007)=split((0010,0010),^,2)\n(0028,0010)=NULL()\n");
        setenv("DICOM_VAR", path_.c_str(), 1);
    }
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;
    ~Root() { std::filesystem::remove_all(path_); }

private:
    void write(const char* name, std::string_view text) { std::ofstream(path_ / "mappings" / name) << text; }

    std::filesystem::path path_;
};

std::string textOf(DcmItem& item, const DcmTagKey& key)
{
    OFString text;
    return item.findAndGetOFStringArray(key, text).good() ? text.c_str() : "-";
}

/// A thread that loads a set of its own under the lock, and coerces a dataset of its own without it.
void loadAndApply()
{
    for (int round = 0; round < kRounds; ++round) {
        const std::unique_ptr<DcmDataset> dataset = kxtest::sampleDataset();
        MappingSession session;
        session.dataset = dataset.get();
        std::unique_lock<std::mutex> lock(parsing);
        MappingSet set;
        expect(!errorlogs.empty(), "each load reports its bad line");
        errorlogs.clear();
        lock.unlock();
        expect(set.mappings.size() == 1 && set.pre != nullptr, "each thread loads its own set");
        set.applyGlobal(GlobalPre, session);
        set.apply("AE", session);
        set.applyGlobal(GlobalPost, session);
        expect(textOf(*dataset, DcmTagKey(0x0010, 0x0010)) == "DOE^JANE", "each thread's rules write its dataset");
    }
}

/// A receiving thread of a server: applies the set that all threads have in common, without a lock. "rnd" is among its
/// rules.
void receive(MappingSet& shared)
{
    for (int round = 0; round < kRounds; ++round) {
        const std::unique_ptr<DcmDataset> dataset = kxtest::sampleDataset();
        MappingSession session;
        session.dataset = dataset.get();
        shared.applyGlobal(GlobalPre, session);
        shared.apply("AE", session);
        const char* id = session.getVariable("@id");
        expect(id != nullptr && std::string_view(id) == "  PID-42", "a session keeps its variables");
        expect(textOf(*dataset, DcmTagKey(0x0028, 0x0010)) == "-", "a shared set's rules write the given dataset");
    }
}

/// Draws from the sequence that all threads share.
void draw(Mapping& rule, std::vector<std::string>& drawn, int rounds)
{
    for (int round = 0; round < rounds; ++round) {
        MappingSession session;
        rule.apply(session);
        drawn.emplace_back(session.getVariable("@drawn"));
    }
}

/// Many threads draw what one thread would, each number once.
void drawTogether()
{
    constexpr int kDraws = 10 * kRounds; // long enough for the threads to meet
    Mapping rule("$(@drawn)=rnd(2147483647)", "draw");
    std::latch begin(kAppliers);
    const unsigned start = gseed;
    std::vector<std::vector<std::string>> drawn(kAppliers);
    std::vector<std::thread> threads;
    for (auto& own : drawn) {
        threads.emplace_back([&rule, &begin, &own] {
            begin.arrive_and_wait();
            draw(rule, own, kDraws);
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::vector<std::string> together;
    for (const auto& own : drawn) together.insert(together.end(), own.begin(), own.end());

    gseed = start;
    std::vector<std::string> alone;
    for (int i = 0; i < kAppliers; ++i) draw(rule, alone, kDraws);
    std::sort(together.begin(), together.end());
    std::sort(alone.begin(), alone.end());
    expect(together == alone, "threads draw the numbers of one sequence, each once");
}

/// Rules that use the whole language, applied by all threads at once, each to a session of its own.
void applyFreely(Mapping& shared)
{
    for (int round = 0; round < kRounds; ++round) {
        const std::unique_ptr<DcmDataset> dataset = kxtest::sampleDataset();
        MappingSession session;
        session.dataset = dataset.get();
        shared.apply(session);
        expect(textOf(*dataset, DcmTagKey(0x0010, 0x0010)) == "DOE^JANE 8", "rules write the given dataset");
        expect(textOf(*dataset, DcmTagKey(0x0075, 0x1001)) == "Step B", "rules write the server's private block");
        expect(session.customFields.getFieldValue("f") != nullptr, "rules write the given session");
    }
}

/// What is read-only while others apply: the table, the descriptors, the arity rules, the trees and names of a set.
std::size_t look(const MappingSet& shared)
{
    std::size_t seen = 0;
    for (const FunctionDef* const* entry = funcList; *entry != nullptr; ++entry) {
        seen += std::string_view((*entry)->name).size() + ((*entry)->numParamsOK(2) ? 1 : 0);
    }
    for (const Mapping* mapping : shared.mappings) {
        seen += std::string_view(mapping->name).size();
        for (const Assignment* assignment : mapping->assignments) seen += assignment->expression->params.size();
    }
    return seen;
}

void lookOn(const MappingSet& shared, std::size_t expected)
{
    for (int round = 0; round < 20 * kRounds; ++round) expect(look(shared) == expected, "a set does not change");
}

} // namespace

int main()
{
    const Root root;
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);
    MappingSet shared;
    errorlogs.clear();
    const std::size_t seen = look(shared);
    Mapping free(kFreeRules, "free");
    std::vector<std::thread> threads;
    for (int i = 0; i < kAppliers; ++i) threads.emplace_back(receive, std::ref(shared));
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back(loadAndApply);
        threads.emplace_back(applyFreely, std::ref(free));
        threads.emplace_back(lookOn, std::cref(shared), seen);
    }
    for (std::thread& thread : threads) thread.join();
    drawTogether();
    if (failures != 0) return 1;
    std::printf("threads: %d threads, %d rounds each\n", kAppliers + 3 * kThreads, kRounds);
    return 0;
}
