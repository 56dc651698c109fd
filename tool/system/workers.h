// SPDX-License-Identifier: BSD-3-Clause
// Tasks done by several processes, forked from this one so that they have what it has loaded.
#pragma once

#include "tool/system/descriptor.h"
#include "tool/system/interruption.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
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

    /// @return the next task that no worker has; none when there are no more.
    std::optional<std::size_t> next();

    /// @return whether a worker died that had this task. It is then done alone, so that only one can be to blame.
    bool isTriedAgain(std::size_t task) const;

    /// @return what was written to this process's standard error since the last call.
    std::string takeErrors();

    /// Tells the parent what the outcome is as soon as something has come about that it can see for itself, whatever
    /// becomes of this process; confirm() or deliver() follows. Like these, it waits for flush().
    /// @param mark by which the parent sees it.
    void prepare(std::size_t task, const Outcome& outcome, std::uint64_t mark);

    /// Tells the parent that it has come about.
    void confirm(std::size_t task);

    /// Tells the parent.
    void deliver(std::size_t task, const Outcome& outcome);

    /// Sends what the parent is to be told; it is woken once for all of it. @throws FileError when it is gone.
    void flush();

private:
    SharedTasks& shared_;
    unsigned worker_;
    int pipe_;
    int errors_;
    std::string unsent_; // frames
};

/// Runs tasks, numbered from 0, in worker processes.
class WorkerPool {
public:
    struct Callbacks {
        /// In the worker: takes tasks from the queue until there are none, and delivers each.
        std::function<void(TaskQueue&)> work;
        /// Whether what a dead worker has prepared for a task has come about.
        std::function<bool(std::size_t task, std::uint64_t mark)> hasComeAbout;
        /// A worker died and left these tasks undone: what it has left of them can be removed.
        std::function<void(pid_t process, const std::vector<std::size_t>& tasks)> onDeath;
        /// For a task on which three workers died: what is said of it.
        std::function<Outcome(std::size_t task, const std::string& how)> onLost;
        /// Told of every task in the order of the tasks, whichever is done first.
        std::function<void(std::size_t task, const Outcome&)> onOutcome;
        /// Told how many tasks are done and how many of them failed: after each of them, and now and then.
        std::function<void(std::size_t done, std::size_t failed)> onProgress;
        /// What there is to say of workers: whole lines.
        std::function<void(const std::string& lines)> onMessage;
    };

    WorkerPool(std::size_t tasks, unsigned workers, Interruption& interruption, Callbacks callbacks);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Runs all tasks, in as many workers as the system grants. Where one dies, another takes its place and does again
    /// what is not done; a task on which three died is lost. An ending signal ends the workers, which finish what must not
    /// be left halfway; what they had done is still told.
    /// @return whether all tasks are told: neither interrupted() nor failure() cut it short.
    bool run();

    /// @return empty, or what made it impossible to go on.
    const std::string& failure() const { return failure_; }

    /// @return how many tasks are done, and how many of those failed.
    std::size_t done() const { return done_; }
    std::size_t failed() const { return failed_; }

private:
    struct Worker {
        pid_t process;
        unsigned number;
        Descriptor pipe;
        Descriptor errors;    // what stands in for its standard error
        std::string received; // less than one outcome
    };
    struct Prepared {
        std::uint64_t mark;
        Outcome outcome;
    };

    void runAll();
    void startAll();
    bool start();
    [[noreturn]] void workAndExit(pid_t parent, unsigned number, Descriptor pipe, Descriptor errors);
    bool isEnding() const { return isEnding_; }
    void endWorkers(int signalNumber);
    void watch();
    void receive(std::size_t index);
    void decode(Worker& worker);
    void take(std::size_t task, Outcome outcome);
    void bury(std::size_t index);
    void settle(const Worker& dead, const std::string& how);
    std::vector<std::size_t> undoneOf(unsigned worker);
    void heedSignals();
    void showInOrder(bool withGaps);

    std::size_t tasks_;
    unsigned wanted_;
    Interruption& interruption_;
    Callbacks callbacks_;
    SharedTasks* shared_; // in memory that the processes share
    std::vector<Worker> workers_;
    unsigned started_ = 0;
    unsigned idleDeaths_ = 0; // in a row, of workers that had no task
    std::string startFailure_;
    std::map<std::size_t, Prepared> prepared_;
    std::map<std::size_t, Outcome> waiting_; // for their predecessors
    std::vector<bool> isTold_;
    std::size_t nextToShow_ = 0;
    std::size_t done_ = 0;
    std::size_t failed_ = 0;
    bool isEnding_ = false;
    std::chrono::steady_clock::time_point patience_; // until when workers may take to end
    std::string failure_;
};

} // namespace kxtool
