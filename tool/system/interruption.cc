// SPDX-License-Identifier: BSD-3-Clause
// Polling before each write is not enough: a terminal or a pipe with other writers can be full again in between. So a
// timer interrupts the write itself at intervals, and signals are read then.
#include "tool/system/interruption.h"

#include "tool/console/exitcodes.h"
#include "tool/console/output.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace kxtool {
namespace {

using namespace std::chrono_literals;

constexpr auto kMostWaitAfterSignal = 1s;

extern "C" void interruptOnly(int) {}

} // namespace

Interruption::Interruption() : signals_(signalfd(-1, &handledSignals(), SFD_CLOEXEC | SFD_NONBLOCK))
{
    if (!signals_.isOpen()) throw FileError("signals", systemReason(errno));
    sigset_t forWorkers;
    sigemptyset(&forWorkers);
    sigaddset(&forWorkers, kEndWorker);
    sigprocmask(SIG_BLOCK, &forWorkers, nullptr); // even where it is ignored: a worker must not miss it while it starts
    struct sigaction action = {};
    action.sa_handler = interruptOnly; // without SA_RESTART
    sigaction(SIGALRM, &action, &alarmBefore_);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, &pipeBefore_);
    const timeval tick = {0, kTickMs * 1000};
    const itimerval timer = {tick, tick};
    setitimer(ITIMER_REAL, &timer, &timerBefore_);
}

Interruption::~Interruption()
{
    setitimer(ITIMER_REAL, &timerBefore_, nullptr);
    sigaction(SIGALRM, &alarmBefore_, nullptr);
    sigaction(SIGPIPE, &pipeBefore_, nullptr);
}

int Interruption::readSignals()
{
    signalfd_siginfo info = {};
    while (read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        end(static_cast<int>(info.ssi_signo));
    return arrived_;
}

void Interruption::end(int signalNumber)
{
    if (arrived_ == 0) writeDeadline_ = Clock::now() + kMostWaitAfterSignal;
    arrived_ = signalNumber;
}

int Interruption::write(int descriptor, std::string_view bytes)
{
    if (blocked_.contains(descriptor)) return EINTR;
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
            continue;
        }
        const int reason = errno;
        if (reason != EINTR && reason != EAGAIN) return reason;
        if (readSignals() != 0 && Clock::now() > writeDeadline_) {
            blocked_.insert(descriptor);
            return EINTR;
        }
        pollfd writable = {descriptor, POLLOUT, 0};
        if (reason == EAGAIN)
            poll(&writable, 1, kTickMs); // another process has made the shared descriptor non-blocking
    }
    return 0;
}

void Interruption::endBySignal(int signalNumber)
{
    std::signal(signalNumber, SIG_DFL);
    keepNoCore();
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signalNumber);
    sigprocmask(SIG_UNBLOCK, &one, nullptr); // it may have been blocked when this process began
    raise(signalNumber);
    _exit(kUnusable); // not reached
}

} // namespace kxtool
