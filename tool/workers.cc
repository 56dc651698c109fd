// SPDX-License-Identifier: BSD-3-Clause
// Workers take tasks from a counter in shared memory and send outcomes through a pipe each; their standard error is a
// file in memory, so that what libraries print stays with the task, and is there even after a crash.
#include "tool/workers.h"

#include "tool/output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <tuple>
#include <utility>

namespace kxtool {
namespace {

constexpr int kTickMs = 200;
constexpr std::size_t kReadBytes = 64 * 1024;
constexpr unsigned kMaxIdleDeaths = 3;
constexpr int kWorkerFailed = 3; // a worker's own exit status, for its parent alone

// An outcome on its way through a pipe: this, then its three texts.
struct Frame {
    std::size_t task;
    bool isGood;
    std::array<std::size_t, 3> sizes;
};

[[noreturn]] void fail(std::string_view what)
{
    throw FileError(what, systemReason(errno));
}

std::string takeAll(int file)
{
    struct stat status = {};
    if (fstat(file, &status) != 0 || status.st_size == 0) return {};
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t count = pread(file, text.data(), text.size(), 0);
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    std::ignore = ftruncate(file, 0);
    std::ignore = lseek(file, 0, SEEK_SET);
    if (!text.empty() && !text.ends_with('\n')) text += '\n';
    return text;
}

std::string howItEnded(int status)
{
    if (WIFSIGNALED(status)) return fmt::format("{} (signal {})", strsignal(WTERMSIG(status)), WTERMSIG(status));
    return fmt::format("exit status {}", WEXITSTATUS(status));
}

} // namespace

class SharedTasks {
public:
    static constexpr unsigned kNobody = 0;

    static std::size_t bytes(std::size_t tasks) { return sizeof(SharedTasks) + tasks * sizeof(std::atomic<unsigned>); }

    std::atomic<unsigned>& ownerOf(std::size_t task)
    {
        return reinterpret_cast<std::atomic<unsigned>*>(this + 1)[task]; // behind this object; zero is a good start
    }

    std::atomic<std::size_t> next = 0;
    std::size_t count = 0;
};

TaskQueue::TaskQueue(SharedTasks& shared, unsigned worker, int pipe, int errors)
    : shared_(shared), worker_(worker), pipe_(pipe), errors_(errors)
{
}

std::optional<std::size_t> TaskQueue::next()
{
    const std::size_t task = shared_.next.fetch_add(1);
    if (task >= shared_.count) return std::nullopt;
    shared_.ownerOf(task) = worker_;
    return task;
}

std::string TaskQueue::takeErrors()
{
    return takeAll(errors_);
}

void TaskQueue::deliver(std::size_t task, const Outcome& outcome)
{
    const Frame frame = {task, outcome.isGood, {outcome.errors.size(), outcome.output.size(), outcome.report.size()}};
    std::string bytes(reinterpret_cast<const char*>(&frame), sizeof frame);
    bytes.append(outcome.errors).append(outcome.output).append(outcome.report);
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = write(pipe_, bytes.data() + sent, bytes.size() - sent);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail("worker");
        sent += static_cast<std::size_t>(count);
    }
}

WorkerPool::WorkerPool(std::size_t tasks, unsigned workers, Callbacks callbacks)
    : tasks_(tasks), wanted_(workers), callbacks_(std::move(callbacks)), isTold_(tasks)
{
    void* const memory =
        mmap(nullptr, SharedTasks::bytes(tasks), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) fail("workers");
    shared_ = new (memory) SharedTasks;
    shared_->count = tasks;
}

WorkerPool::~WorkerPool()
{
    // Only when something was thrown. The pipes go first: a worker that is writing would wait for us, and we for it.
    for (const Worker& worker : workers_) close(worker.pipe);
    for (const Worker& worker : workers_) {
        kill(worker.process, SIGTERM);
        waitpid(worker.process, nullptr, 0);
        close(worker.errors);
    }
    if (signals_ >= 0) close(signals_);
    munmap(shared_, SharedTasks::bytes(tasks_));
}

int WorkerPool::run()
{
    const SignalsHeld held; // they are read, together with what workers send
    signals_ = signalfd(-1, &heededSignals(), SFD_CLOEXEC | SFD_NONBLOCK);
    if (signals_ < 0) fail("signals");
    while (workers_.size() < wanted_ && workers_.size() < tasks_) start();
    while (!workers_.empty()) watch();
    // Taken by a worker that died before it could put its name to it.
    if (endedBy_ == 0) declareLost(SharedTasks::kNobody, "it ended");
    showInOrder(endedBy_ != 0);
    return endedBy_;
}

void WorkerPool::start()
{
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("worker");
    const int errors = memfd_create("errors", MFD_CLOEXEC);
    if (errors < 0) fail("worker");
    std::fflush(stdout); // or the worker would have it, too
    std::fflush(stderr);
    const unsigned number = ++started_;
    const pid_t parent = getpid();
    const pid_t process = fork();
    if (process < 0) fail("worker");
    if (process == 0) {
        close(ends[0]); // a reading end kept here would hide from the writer that the parent has gone
        for (const Worker& worker : workers_) close(worker.pipe);
        workAndExit(parent, number, ends[1], errors);
    }
    close(ends[1]);
    workers_.push_back({process, number, ends[0], errors, {}});
}

void WorkerPool::workAndExit(pid_t parent, unsigned number, int pipe, int errors)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM); // however the parent ends, nothing stays behind
    if (getppid() != parent) _exit(kWorkerFailed);
    std::signal(SIGPIPE, SIG_IGN); // a parent that is gone is an error, so that destructors run
    dup2(errors, STDERR_FILENO);
    sigprocmask(SIG_UNBLOCK, &heededSignals(), nullptr);
    int status = 0;
    try {
        TaskQueue queue(*shared_, number, pipe, errors);
        callbacks_.work(queue);
    } catch (const std::exception& error) {
        reportError(error.what());
        status = kWorkerFailed;
    }
    _exit(status); // what the parent set up is the parent's to take down
}

void WorkerPool::watch()
{
    std::vector<pollfd> watched = {{signals_, POLLIN, 0}};
    for (const Worker& worker : workers_) watched.push_back({worker.pipe, POLLIN, 0});
    const int count = poll(watched.data(), watched.size(), kTickMs);
    if (count < 0 && errno != EINTR) fail("workers");
    heedSignals();
    for (std::size_t i = workers_.size(); count > 0 && i-- > 0;) { // from behind: receive() may take one out
        if (watched[i + 1].revents != 0) receive(workers_[i]);
    }
    showInOrder(false);
    callbacks_.onProgress(done_, failed_);
}

void WorkerPool::receive(Worker& worker)
{
    std::array<char, kReadBytes> bytes;
    const ssize_t count = read(worker.pipe, bytes.data(), bytes.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (count <= 0) return bury(worker);
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
        take(frame.task, {frame.isGood, worker.received.substr(at, errors), worker.received.substr(at + errors, output),
                          worker.received.substr(at + errors + output, report)});
        at += errors + output + report;
    }
    worker.received.erase(0, at);
}

void WorkerPool::take(std::size_t task, Outcome outcome)
{
    isTold_[task] = true;
    ++done_;
    if (!outcome.isGood) ++failed_;
    waiting_.emplace(task, std::move(outcome));
}

void WorkerPool::bury(Worker& worker)
{
    int status = 0;
    while (waitpid(worker.process, &status, 0) < 0 && errno == EINTR) {
    }
    heedSignals(); // one that the worker got as well has arrived here by now
    const std::string last = takeAll(worker.errors);
    close(worker.pipe);
    close(worker.errors);
    const bool isClean = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (endedBy_ == 0 && WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) endedBy_ = SIGTERM; // asked to end
    if (!isClean && endedBy_ == 0) {
        std::fwrite(last.data(), 1, last.size(), stderr);
        const std::string how = howItEnded(status);
        // Those that cannot even begin would be followed by others without end.
        if (!declareLost(worker.number, how) && ++idleDeaths_ > kMaxIdleDeaths)
            throw FileError("worker", "ended without a task: " + how);
    }
    const bool isMissed = !isClean && endedBy_ == 0 && shared_->next < tasks_;
    std::swap(worker, workers_.back());
    workers_.pop_back();
    if (isMissed) start();
    if (endedBy_ != 0) {
        for (const Worker& other : workers_) kill(other.process, SIGTERM);
    }
}

bool WorkerPool::declareLost(unsigned worker, const std::string& how)
{
    bool isAny = false;
    for (std::size_t task = 0; task < tasks_ && task < shared_->next; ++task) {
        if (shared_->ownerOf(task) != worker || isTold_[task]) continue;
        take(task, callbacks_.onLost(task, how));
        isAny = true;
    }
    return isAny;
}

void WorkerPool::heedSignals()
{
    signalfd_siginfo info = {};
    while (read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        endedBy_ = static_cast<int>(info.ssi_signo);
        for (const Worker& worker : workers_) kill(worker.process, SIGTERM);
    }
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
