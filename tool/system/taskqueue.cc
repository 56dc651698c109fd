// SPDX-License-Identifier: BSD-3-Clause
// Frames are collected and sent together, since each write wakes the parent.
#include "tool/system/taskqueue.h"

#include "tool/console/output.h"
#include "tool/system/memoryfile.h"
#include "tool/system/sharedtasks.h"

#include <unistd.h>

#include <cerrno>

namespace kxtool {
namespace {

void append(std::string& frames, Frame::Kind kind, std::size_t task, const Outcome& outcome, std::uint64_t mark = 0)
{
    Frame frame = {};
    frame.task = task;
    frame.mark = mark;
    frame.kind = kind;
    frame.isGood = outcome.isGood;
    frame.sizes = {outcome.errors.size(), outcome.output.size(), outcome.report.size()};
    frames.append(reinterpret_cast<const char*>(&frame), sizeof frame);
    frames.append(outcome.errors).append(outcome.output).append(outcome.report);
}

} // namespace

TaskQueue::TaskQueue(SharedTasks& shared, unsigned worker, int pipe, int errors)
    : shared_(shared), worker_(worker), pipe_(pipe), errors_(errors)
{
}

std::optional<std::size_t> TaskQueue::next()
{
    std::size_t hint = shared_.hint;
    for (std::size_t task = hint; task < shared_.count; ++task) {
        unsigned owner = SharedTasks::kNobody;
        if (!shared_[task].owner.compare_exchange_strong(owner, worker_)) continue;
        shared_.hint.compare_exchange_strong(hint, task + 1); // not where the parent has given tasks back meanwhile
        return task;
    }
    return std::nullopt;
}

bool TaskQueue::isTriedAgain(std::size_t task) const
{
    return shared_[task].deaths > 0;
}

std::string TaskQueue::takeErrors()
{
    return takeContent(errors_);
}

void TaskQueue::prepare(std::size_t task, const Outcome& outcome, std::uint64_t mark)
{
    append(unsent_, Frame::Kind::Prepared, task, outcome, mark);
}

void TaskQueue::confirm(std::size_t task)
{
    append(unsent_, Frame::Kind::Confirmed, task, {});
}

void TaskQueue::deliver(std::size_t task, const Outcome& outcome)
{
    append(unsent_, Frame::Kind::Final, task, outcome);
}

void TaskQueue::flush()
{
    for (std::size_t sent = 0; sent < unsent_.size();) {
        const ssize_t count = write(pipe_, unsent_.data() + sent, unsent_.size() - sent);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw FileError("worker", systemReason(errno));
        sent += static_cast<std::size_t>(count);
    }
    unsent_.clear();
}

} // namespace kxtool
