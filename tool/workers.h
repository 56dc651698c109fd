// SPDX-License-Identifier: BSD-3-Clause
// Tasks done by several processes, forked from this one so that they have what it has loaded.
#pragma once

#include "tool/signals.h"

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kxtool {

/// What became of one task.
struct Outcome {
    bool isGood = true;
    std::string errors; ///< for standard error, whole lines
    std::string output; ///< for standard output, whole lines
    std::string report; ///< a line for the report, without its line feed; empty for none
};

/// What all processes see: which tasks are taken.
class SharedTasks;

/// A worker's side: where its tasks come from and what became of them goes to.
class TaskQueue {
public:
    TaskQueue(SharedTasks& shared, unsigned worker, int pipe, int errors);

    /// @return the next task that no worker has taken; none when there are no more.
    std::optional<std::size_t> next();

    /// @return what was written to this process's standard error since the last call.
    std::string takeErrors();

    /// Tells the parent. @throws FileError when it is gone.
    void deliver(std::size_t task, const Outcome& outcome);

private:
    SharedTasks& shared_;
    unsigned worker_;
    int pipe_;
    int errors_;
};

/// Runs tasks, numbered from 0, in worker processes.
class WorkerPool {
public:
    struct Callbacks {
        /// In the worker: takes tasks from the queue until there are none, and delivers each.
        std::function<void(TaskQueue&)> work;
        /// For a worker that ended before it delivered a task it had taken: what is said of that task.
        std::function<Outcome(std::size_t task, const std::string& how)> onLost;
        /// Told of every task in the order of the tasks, whichever is done first.
        std::function<void(std::size_t task, const Outcome&)> onOutcome;
        /// Told how many tasks are done and how many of them failed: after each of them, and now and then.
        std::function<void(std::size_t done, std::size_t failed)> onProgress;
    };

    WorkerPool(std::size_t tasks, unsigned workers, Callbacks callbacks);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Runs all tasks. A worker that dies loses the tasks it had taken; another takes its place. SIGINT, SIGTERM and
    /// SIGHUP end the workers, which finish what must not be left halfway; what they had done is still told.
    /// @return 0, or the signal that ended the run early; the process is then still to end itself by it.
    int run();

    /// @return how many tasks are done, and how many of those failed.
    std::size_t done() const { return done_; }
    std::size_t failed() const { return failed_; }

private:
    struct Worker {
        pid_t process;
        unsigned number;
        int pipe;
        int errors;           // what stands in for its standard error
        std::string received; // less than one outcome
    };

    void start();
    [[noreturn]] void workAndExit(pid_t parent, unsigned number, int pipe, int errors);
    void watch();
    void receive(Worker& worker);
    void decode(Worker& worker);
    void take(std::size_t task, Outcome outcome);
    void bury(Worker& worker);
    bool declareLost(unsigned worker, const std::string& how);
    void heedSignals();
    void showInOrder(bool withGaps);

    std::size_t tasks_;
    unsigned wanted_;
    Callbacks callbacks_;
    SharedTasks* shared_; // in memory that the processes share
    std::vector<Worker> workers_;
    unsigned started_ = 0;
    unsigned idleDeaths_ = 0;                // of workers that had no task
    std::map<std::size_t, Outcome> waiting_; // for their predecessors
    std::vector<bool> isTold_;
    std::size_t nextToShow_ = 0;
    std::size_t done_ = 0;
    std::size_t failed_ = 0;
    int signals_ = -1; // where ending signals are read from
    int endedBy_ = 0;
};

} // namespace kxtool
