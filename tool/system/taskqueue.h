// SPDX-License-Identifier: BSD-3-Clause
// The worker's side of a pool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace kxtool {

class SharedTasks;

/// What became of one task.
struct Outcome {
    bool isGood = true;
    std::string errors; ///< for standard error, whole lines
    std::string output; ///< for standard output, whole lines
    std::string report; ///< a line for the report, without its line feed; empty for none
};

/// A worker's side: where its tasks come from and what became of them goes to.
class TaskQueue {
public:
    TaskQueue(SharedTasks& shared, unsigned worker, int pipe, int errors);

    /// @return the next task that no worker has; none when there are no more.
    std::optional<std::size_t> next();

    /// @return whether a worker died that had this task. It is then done alone, to find out whether it is the cause.
    bool isTriedAgain(std::size_t task) const;

    /// @return what was written to this process's standard error since the last call.
    std::string takeErrors();

    /// Announces what the outcome will be, before the step that counts: if this process dies, the parent finds out whether
    /// that step was done (WorkerPool::Callbacks::hasComeAbout). confirm() or deliver() follows. All three are sent by
    /// flush().
    /// @param mark by which the parent finds out.
    void prepare(std::size_t task, const Outcome& outcome, std::uint64_t mark);

    /// Says that what was prepared is done.
    void confirm(std::size_t task);

    /// Says what the outcome is.
    void deliver(std::size_t task, const Outcome& outcome);

    /// Sends all that was added since the last call at once. @throws FileError when the parent is gone.
    void flush();

private:
    SharedTasks& shared_;
    unsigned worker_;
    int pipe_;
    int errors_;
    std::string unsent_; // frames
};

} // namespace kxtool
