// SPDX-License-Identifier: BSD-3-Clause
// The signals that ask a program to end, and how to put them off.
#pragma once

#include <sys/resource.h>

#include <array>
#include <csignal>

namespace kxtool {

/// Asks a worker to end. A signal of our own: workers inherit what their parent was told to ignore, this one they heed.
constexpr int kEndWorker = SIGUSR1;

constexpr std::array kEndingSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, kEndWorker};

/// @return those of the ending signals that this process was not told to ignore when it began, as "nohup" does.
inline sigset_t& heededSignals()
{
    static sigset_t heeded = [] {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signalNumber : kEndingSignals) {
            struct sigaction action = {};
            if (sigaction(signalNumber, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
                sigaddset(&signals, signalNumber);
        }
        return signals;
    }();
    return heeded;
}

/// SIGQUIT leaves an image of the process's memory behind, patients' data among it: not from now on.
inline void keepNoCore()
{
    constexpr rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

/// For a new worker, which has them held back: from now on they end it, and kEndWorker does in any case.
inline void heedSignalsAsWorker()
{
    std::signal(kEndWorker, SIG_DFL);
    sigaddset(&heededSignals(), kEndWorker);
    sigprocmask(SIG_UNBLOCK, &heededSignals(), nullptr);
}

/// Holds the ending signals back while it lives: for steps that belong together. May be nested.
class SignalsHeld {
public:
    SignalsHeld() { sigprocmask(SIG_BLOCK, &heededSignals(), &before_); }
    ~SignalsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t before_;
};

} // namespace kxtool
