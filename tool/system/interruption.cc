// SPDX-License-Identifier: BSD-3-Clause
// Polling before each write would not do: a terminal or a pipe with other writers can be full again in between. So a
// timer breaks into the write itself, time and again, and what has arrived is looked at then.
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

constexpr auto kLastWords = 1s;

extern "C" void interruptOnly(int) {}

} // namespace

Interruption::Interruption() : signals_(signalfd(-1, &heededSignals(), SFD_CLOEXEC | SFD_NONBLOCK))
{
    if (!signals_.isOpen()) throw FileError("signals", systemReason(errno));
    sigset_t forWorkers;
    sigemptyset(&forWorkers);
    sigaddset(&forWorkers, kEndWorker);
    sigprocmask(SIG_BLOCK, &forWorkers, nullptr); // even if ignored: a worker that has only begun must not miss it
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

int Interruption::heed()
{
    signalfd_siginfo info = {};
    while (read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        end(static_cast<int>(info.ssi_signo));
    return arrived_;
}

void Interruption::end(int signalNumber)
{
    if (arrived_ == 0) patience_ = Clock::now() + kLastWords;
    arrived_ = signalNumber;
}

int Interruption::write(int descriptor, std::string_view bytes)
{
    if (abandoned_.contains(descriptor)) return EINTR;
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
            continue;
        }
        const int reason = errno;
        if (reason != EINTR && reason != EAGAIN) return reason;
        if (heed() != 0 && Clock::now() > patience_) {
            abandoned_.insert(descriptor);
            return EINTR;
        }
        pollfd writable = {descriptor, POLLOUT, 0};
        if (reason == EAGAIN) poll(&writable, 1, kTickMs); // someone made it so for all who share it
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
