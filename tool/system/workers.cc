// SPDX-License-Identifier: BSD-3-Clause
// Workers take tasks from a table in shared memory and send outcomes through a pipe each. Their standard error is a file
// in memory: what libraries print is told with its task, also after a crash.
#include "tool/system/workers.h"

#include "tool/console/output.h"
#include "tool/system/memoryfile.h"
#include "tool/system/sharedtasks.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace kxtool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadBytes = 64 * 1024;
constexpr unsigned kMaxIdleDeaths = 3;
constexpr unsigned kMaxDeaths = 3;                 // on one task
constexpr int kWorkerFailed = 3;                   // a worker's own exit status, for its parent alone
constexpr std::chrono::seconds kMostTimeToEnd(10); // for workers that were asked to end

[[noreturn]] void fail(std::string_view what)
{
    throw FileError(what, systemReason(errno));
}

std::string howItEnded(int status)
{
    if (WIFSIGNALED(status)) return fmt::format("{} (signal {})", strsignal(WTERMSIG(status)), WTERMSIG(status));
    return fmt::format("exit status {}", WEXITSTATUS(status));
}

int waitFor(pid_t process)
{
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

} // namespace

WorkerPool::WorkerPool(std::size_t tasks, unsigned workers, Interruption& interruption, Callbacks callbacks)
    : tasks_(tasks), wanted_(workers), interruption_(interruption), callbacks_(std::move(callbacks)), isTold_(tasks)
{
    void* const memory =
        mmap(nullptr, SharedTasks::bytes(tasks), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) fail("workers");
    shared_ = new (memory) SharedTasks(tasks);
}

WorkerPool::~WorkerPool()
{
    munmap(shared_, SharedTasks::bytes(tasks_));
}

void WorkerPool::run()
{
    try {
        runAll();
    } catch (const std::exception& error) { // exhausted memory
        failure_ = error.what();
        endWorkers(kEndWorker);
        for (Worker& worker : workers_) worker.pipe.close(); // else both would wait for each other
        while (!workers_.empty()) removeWorker(workers_.size() - 1);
    }
}

void WorkerPool::runAll()
{
    startAll();
    while (true) {
        while (!workers_.empty()) watch();
        if (isEnding_ || done_ == tasks_) break;
        shared_->hint = 0; // a worker died when the others had found no more tasks
        if (!start()) {
            failure_ = FileError("worker processes", startFailure_).what();
            isEnding_ = true;
        }
    }
    showInOrder(isEnding_);
}

void WorkerPool::startAll()
{
    const std::size_t wanted = std::min<std::size_t>(wanted_, tasks_);
    while (workers_.size() < wanted && start()) {
    }
    if (workers_.size() == wanted || workers_.empty()) return;
    callbacks_.onMessage(fmt::format("kxmap: warning: {} of {} worker processes could be started: {}\n",
                                     workers_.size(), wanted, startFailure_));
}

bool WorkerPool::start()
{
    const auto refused = [this] {
        startFailure_ = systemReason(errno);
        return false;
    };
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return refused();
    Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    Descriptor errors(memfd_create("errors", MFD_CLOEXEC));
    if (!errors.isOpen()) return refused();
    std::fflush(stdout); // or the worker would have it, too
    std::fflush(stderr);
    const pid_t parent = getpid();
    const pid_t process = fork();
    if (process < 0) return refused();
    ++started_;
    if (process == 0) {
        reading.close(); // while it is open, writing would not fail when the parent is gone
        workAndExit(parent, started_, std::move(writing), std::move(errors));
    }
    workers_.push_back({process, started_, std::move(reading), std::move(errors), {}});
    return true;
}

void WorkerPool::workAndExit(pid_t parent, unsigned number, Descriptor pipe, Descriptor errors)
{
    prctl(PR_SET_PDEATHSIG, kEndWorker); // however the parent ends, its workers end, too
    workers_.clear();                    // the descriptors of the others
    dup2(errors.get(), STDERR_FILENO);
    unblockSignalsInWorker();
    if (getppid() != parent) _exit(kWorkerFailed);
    int status = 0;
    try {
        TaskQueue queue(*shared_, number, pipe.get(), errors.get());
        callbacks_.work(queue);
    } catch (const std::exception& error) { // also where the parent's end of the pipe is gone
        reportError(error.what());
        status = kWorkerFailed;
    }
    _exit(status); // without the destructors and exit handlers of what the parent has set up
}

void WorkerPool::endWorkers(int signalNumber)
{
    if (!isEnding_) endDeadline_ = Clock::now() + kMostTimeToEnd;
    isEnding_ = true;
    for (const Worker& worker : workers_) kill(worker.process, signalNumber);
}

void WorkerPool::watch()
{
    std::vector<pollfd> watched = {{interruption_.descriptor(), POLLIN, 0}};
    for (const Worker& worker : workers_) watched.push_back({worker.pipe.get(), POLLIN, 0});
    const int count = poll(watched.data(), watched.size(), Interruption::kTickMs);
    if (count < 0 && errno != EINTR) fail("workers");
    checkSignals();
    for (std::size_t i = workers_.size(); count > 0 && i-- > 0;) { // backwards, since receive() may remove one
        if (watched[i + 1].revents != 0) receive(i);
    }
    if (isEnding_ && Clock::now() > endDeadline_) endWorkers(SIGKILL); // they may be stopped
    showInOrder(false);
    callbacks_.onProgress(done_, failed_);
}

void WorkerPool::receive(std::size_t index)
{
    Worker& worker = workers_[index];
    std::array<char, kReadBytes> bytes;
    const ssize_t count = read(worker.pipe.get(), bytes.data(), bytes.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (count <= 0) return removeWorker(index);
    worker.received.append(bytes.data(), static_cast<std::size_t>(count));
    decode(worker);
}

void WorkerPool::decode(Worker& worker)
{
    std::size_t at = 0;
    Frame frame;
    while (worker.received.size() - at >= sizeof frame) {
        std::memcpy(&frame, worker.received.data() + at, sizeof frame);
        const auto& [errors, output, report] = frame.sizes;
        if (worker.received.size() - at - sizeof frame < errors + output + report) break;
        at += sizeof frame;
        Outcome outcome = {frame.isGood, worker.received.substr(at, errors),
                           worker.received.substr(at + errors, output),
                           worker.received.substr(at + errors + output, report)};
        at += errors + output + report;
        if (frame.kind == Frame::Kind::Prepared) prepared_[frame.task] = {frame.mark, std::move(outcome)};
        else if (frame.kind == Frame::Kind::Confirmed) take(frame.task, std::move(prepared_.at(frame.task).outcome));
        else take(frame.task, std::move(outcome));
    }
    worker.received.erase(0, at);
}

void WorkerPool::take(std::size_t task, Outcome outcome)
{
    prepared_.erase(task);
    isTold_[task] = true;
    idleDeaths_ = 0;
    ++done_;
    if (!outcome.isGood) ++failed_;
    waiting_.emplace(task, std::move(outcome));
}

void WorkerPool::removeWorker(std::size_t index)
{
    std::swap(workers_[index], workers_.back());
    const Worker dead = std::move(workers_.back());
    workers_.pop_back();
    const int status = waitFor(dead.process);
    checkSignals(); // a signal sent to all processes has arrived here by now
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return;
    if (!isEnding_ && WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) { // a request to end, meant for all
        interruption_.end(SIGTERM);
        endWorkers(kEndWorker);
    }
    if (!isEnding_) callbacks_.onMessage(takeContent(dead.errors.get()));
    settleTasksOf(dead, howItEnded(status));
    if (!isEnding_ && done_ < tasks_) start(); // if that fails, the others go on
}

void WorkerPool::settleTasksOf(const Worker& dead, const std::string& how)
{
    std::vector<std::size_t> undone = undoneOf(dead.number);
    const bool wasIdle = undone.empty();
    std::erase_if(undone, [this](std::size_t task) {
        const auto prepared = prepared_.find(task);
        if (prepared == prepared_.end()) return false;
        const bool hasComeAbout = callbacks_.hasComeAbout(task, prepared->second.mark);
        if (hasComeAbout) take(task, std::move(prepared->second.outcome));
        else prepared_.erase(prepared);
        return hasComeAbout;
    });
    callbacks_.onDeath(dead.process, undone);
    if (isEnding_) return;
    // Else new workers would be started for ever where none can begin its work.
    if (wasIdle && ++idleDeaths_ > kMaxIdleDeaths) {
        failure_ = FileError("worker processes", "they end without a task: " + how).what();
        return endWorkers(kEndWorker);
    }
    std::size_t again = 0;
    for (const std::size_t task : undone) {
        if (++(*shared_)[task].deaths >= kMaxDeaths) {
            take(task, callbacks_.onLost(task, how));
            continue;
        }
        if (again++ == 0) shared_->hint = std::min<std::size_t>(shared_->hint, task);
        (*shared_)[task].owner = SharedTasks::kNobody;
    }
    if (again > 0)
        callbacks_.onMessage(fmt::format("kxmap: warning: a worker process died: {}; {} {} done again\n", how, again,
                                         again == 1 ? "file is" : "files are"));
}

std::vector<std::size_t> WorkerPool::undoneOf(unsigned worker)
{
    std::vector<std::size_t> undone;
    for (std::size_t task = 0; task < tasks_; ++task) {
        if ((*shared_)[task].owner == worker && !isTold_[task]) undone.push_back(task);
    }
    return undone;
}

void WorkerPool::checkSignals()
{
    if (interruption_.readSignals() != 0 && !isEnding_) endWorkers(kEndWorker);
}

void WorkerPool::showInOrder(bool withGaps)
{
    for (auto first = waiting_.begin(); first != waiting_.end() && (withGaps || first->first == nextToShow_);
         first = waiting_.erase(first)) {
        callbacks_.onOutcome(first->first, first->second);
        nextToShow_ = first->first + 1;
    }
}

} // namespace kxtool
