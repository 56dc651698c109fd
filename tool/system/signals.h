// SPDX-License-Identifier: BSD-3-Clause
// The signals that ask a program to end, and how to put them off.
#pragma once

#include <sys/resource.h>

#include <array>
#include <csignal>

namespace kxtool {

/// Asks a worker to end. Workers inherit which signals their parent was told to ignore; this one is never ignored.
constexpr int kEndWorker = SIGUSR1;

constexpr std::array kEndingSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, kEndWorker};

/// @return those of the ending signals that this process was not told to ignore when it began, as "nohup" does.
inline sigset_t& handledSignals()
{
    static sigset_t handled = [] {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signalNumber : kEndingSignals) {
            struct sigaction action = {};
            if (sigaction(signalNumber, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
                sigaddset(&signals, signalNumber);
        }
        return signals;
    }();
    return handled;
}

/// Switches core files off: SIGQUIT would write the process's memory, and patients' data with it, to the disk.
inline void keepNoCore()
{
    constexpr rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

/// For a new worker, in which the ending signals are blocked: unblocks them, and kEndWorker even where it was ignored.
inline void unblockSignalsInWorker()
{
    std::signal(kEndWorker, SIG_DFL);
    sigaddset(&handledSignals(), kEndWorker);
    sigprocmask(SIG_UNBLOCK, &handledSignals(), nullptr);
}

/// Blocks the ending signals while it lives, for steps that must be done together. May be nested.
class SignalsHeld {
public:
    SignalsHeld() { sigprocmask(SIG_BLOCK, &handledSignals(), &before_); }
    ~SignalsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t before_;
};

} // namespace kxtool
