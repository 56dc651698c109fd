// SPDX-License-Identifier: BSD-3-Clause
// The pool of worker processes: what dead workers had not done is done again, and only that.
#ifdef KXDCM_TOOL

#include "tool/system/interruption.h"
#include "tool/system/workers.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <csignal>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

using namespace kxtool;
using testing::ElementsAre;

namespace {

constexpr std::size_t kTasks = 6;

/// How often each task was done, seen by all processes.
using Counts = std::array<std::atomic<int>, kTasks>;

class ToolWorkerPool : public testing::Test {
protected:
    void SetUp() override
    {
        void* const memory = mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(memory, MAP_FAILED);
        counts = new (memory) Counts();
    }
    void TearDown() override { munmap(counts, sizeof(Counts)); }

    // Does all tasks; `onTask` comes before a task is done.
    void runPool(unsigned workers, const std::function<void(std::size_t task, TaskQueue& queue)>& onTask)
    {
        Interruption interruption;
        WorkerPool pool(kTasks, workers, interruption,
                        {[&](TaskQueue& queue) {
                             while (const auto task = queue.next()) {
                                 onTask(*task, queue);
                                 ++(*counts)[*task];
                                 queue.deliver(*task, {true, {}, std::to_string(*task), {}});
                                 queue.flush();
                             }
                         },
                         [&](std::size_t task, std::uint64_t mark) { return mark == kDone && (*counts)[task] > 0; },
                         [&](pid_t, const std::vector<std::size_t>& tasks) { undone.push_back(tasks.size()); },
                         [](std::size_t, const std::string& how) {
                             return Outcome{false, {}, "lost: " + how, {}};
                         },
                         [&](std::size_t, const Outcome& outcome) { told.push_back(outcome.output); },
                         [](std::size_t, std::size_t) {}, [&](const std::string& lines) { messages += lines; }});
        pool.run();
        failure = pool.failure();
        failed = pool.failed();
    }

    static void die() { kill(getpid(), SIGKILL); }

    static constexpr std::uint64_t kDone = 7;
    static constexpr std::uint64_t kNotDone = 8;

    Counts* counts = nullptr;
    std::vector<std::size_t> undone; // of each dead worker
    std::vector<std::string> told;
    std::string messages;
    std::string failure;
    std::size_t failed = 0;
};

} // namespace

TEST_F(ToolWorkerPool, tellsOutcomesInTheOrderOfTheTasks)
{
    runPool(3, [](std::size_t task, TaskQueue&) { usleep(static_cast<unsigned>((kTasks - task) * 3000)); });
    EXPECT_THAT(told, ElementsAre("0", "1", "2", "3", "4", "5"));
    for (const std::atomic<int>& count : *counts) EXPECT_EQ(count, 1);
    EXPECT_EQ(messages + failure, "");
}

TEST_F(ToolWorkerPool, doesAgainWhatADeadWorkerHadNotDone)
{
    std::atomic<int>& done = (*counts)[2];
    struct Case {
        const char* name;
        std::function<void(TaskQueue&)> lastAct;
        bool isAgain;
        int count; // in all
    };
    const Case cases[] = {
        {"nothing told", [](TaskQueue&) {}, true, 1},
        {"told, but not done",
         [](TaskQueue& queue) {
             queue.prepare(2, {true, {}, "2", {}}, kNotDone);
             queue.flush();
         },
         true, 1},
        {"told and done",
         [&done](TaskQueue& queue) {
             queue.prepare(2, {true, {}, "2", {}}, kDone);
             queue.flush();
             ++done;
         },
         false, 1},
        {"done, but not told", [&done](TaskQueue&) { ++done; }, true, 2}, // why prepare() comes first
    };
    for (const Case& c : cases) {
        for (std::atomic<int>& count : *counts) count = 0;
        told.clear();
        messages.clear();
        runPool(1, [&c](std::size_t task, TaskQueue& queue) {
            if (task != 2 || queue.isTriedAgain(2)) return;
            c.lastAct(queue);
            die();
        });
        EXPECT_THAT(told, ElementsAre("0", "1", "2", "3", "4", "5")) << c.name;
        for (std::size_t task = 0; task < kTasks; ++task) EXPECT_EQ((*counts)[task], task == 2 ? c.count : 1) << c.name;
        EXPECT_EQ(failed, 0U) << c.name;
        EXPECT_EQ(messages,
                  c.isAgain ? "kxmap: warning: a worker process died: Killed (signal 9); 1 file is done again\n" : "")
            << c.name;
    }
}

TEST_F(ToolWorkerPool, givesATaskUpThatEndsThreeWorkers)
{
    runPool(2, [](std::size_t task, TaskQueue&) {
        if (task == 3) die();
    });
    EXPECT_THAT(told, ElementsAre("0", "1", "2", "lost: Killed (signal 9)", "4", "5"));
    EXPECT_EQ(failed, 1U);
    EXPECT_THAT(undone, ElementsAre(1, 1, 1));
    EXPECT_EQ(messages, "kxmap: warning: a worker process died: Killed (signal 9); 1 file is done again\n"
                        "kxmap: warning: a worker process died: Killed (signal 9); 1 file is done again\n");
    EXPECT_EQ(failure, "");
}

TEST_F(ToolWorkerPool, givesUpWhereWorkersEndBeforeTheyBegin)
{
    Interruption interruption;
    WorkerPool pool(kTasks, 2, interruption,
                    {[](TaskQueue&) { _exit(4); },
                     {},
                     [](pid_t, const std::vector<std::size_t>&) {},
                     {},
                     [](std::size_t, const Outcome&) {},
                     [](std::size_t, std::size_t) {},
                     [this](const std::string& lines) { messages += lines; }});
    pool.run();
    EXPECT_EQ(pool.done(), 0U);
    EXPECT_EQ(pool.failure(), "worker processes: they end without a task: exit status 4");
}

#endif
