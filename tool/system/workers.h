// SPDX-License-Identifier: BSD-3-Clause
// Tasks done by several processes, forked from this one so that they have what it has loaded.
#pragma once

#include "tool/system/descriptor.h"
#include "tool/system/interruption.h"
#include "tool/system/taskqueue.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kxtool {

class SharedTasks;

/// Runs tasks, numbered from 0, in worker processes.
class WorkerPool {
public:
    struct Callbacks {
        /// In the worker: takes tasks from the queue until there are none, and delivers each.
        std::function<void(TaskQueue&)> work;
        /// Whether what a dead worker had prepared for a task was done.
        std::function<bool(std::size_t task, std::uint64_t mark)> hasComeAbout;
        /// A worker died with these tasks undone: its temporary files can be removed.
        std::function<void(pid_t process, const std::vector<std::size_t>& tasks)> onDeath;
        /// For a task on which three workers died: what is said of it.
        std::function<Outcome(std::size_t task, const std::string& how)> onLost;
        /// Told of every task in the order of the tasks, whichever is done first.
        std::function<void(std::size_t task, const Outcome&)> onOutcome;
        /// Told how many tasks are done and how many of them failed: after each task, and at intervals.
        std::function<void(std::size_t done, std::size_t failed)> onProgress;
        /// Messages about workers, in whole lines.
        std::function<void(const std::string& lines)> onMessage;
    };

    WorkerPool(std::size_t tasks, unsigned workers, Interruption& interruption, Callbacks callbacks);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Runs all tasks, in as many workers as the system allows. When one dies, another takes its place and repeats what was
    /// not done; a task on which three workers died is given up. An ending signal ends the workers, which first complete
    /// steps that must not be left incomplete; the outcomes of what they have done are still told.
    void run();

    /// @return empty, or why the pool could not go on.
    const std::string& failure() const { return failure_; }

    /// @return how many tasks are done, and how many of those failed.
    std::size_t done() const { return done_; }
    std::size_t failed() const { return failed_; }

private:
    struct Worker {
        pid_t process;
        unsigned number;
        Descriptor pipe;
        Descriptor errors;    // the file in memory that is its standard error
        std::string received; // the beginning of the next frame
    };
    struct Prepared {
        std::uint64_t mark;
        Outcome outcome;
    };

    void runAll();
    void startAll();
    bool start();
    [[noreturn]] void workAndExit(pid_t parent, unsigned number, Descriptor pipe, Descriptor errors);
    void endWorkers(int signalNumber);
    void watch();
    void receive(std::size_t index);
    void decode(Worker& worker);
    void take(std::size_t task, Outcome outcome);
    void removeWorker(std::size_t index);
    void settleTasksOf(const Worker& dead, const std::string& how);
    std::vector<std::size_t> undoneOf(unsigned worker);
    void checkSignals();
    void showInOrder(bool withGaps);

    std::size_t tasks_;
    unsigned wanted_;
    Interruption& interruption_;
    Callbacks callbacks_;
    SharedTasks* shared_; // in memory that the processes share
    std::vector<Worker> workers_;
    unsigned started_ = 0;
    unsigned idleDeaths_ = 0; // how many workers in a row died without a task
    std::string startFailure_;
    std::map<std::size_t, Prepared> prepared_;
    std::map<std::size_t, Outcome> waiting_; // until the tasks before them are told
    std::vector<bool> isTold_;
    std::size_t nextToShow_ = 0;
    std::size_t done_ = 0;
    std::size_t failed_ = 0;
    bool isEnding_ = false;
    std::chrono::steady_clock::time_point endDeadline_; // workers that have not ended by then are killed
    std::string failure_;
};

} // namespace kxtool
