// SPDX-License-Identifier: BSD-3-Clause
// The signals that ask a program to end, and how to put them off.
#pragma once

#include <array>
#include <csignal>

namespace kxtool {

constexpr std::array kEndingSignals = {SIGINT, SIGTERM, SIGHUP};

/// @return those of the ending signals that this process was not told to ignore when it began, as "nohup" does.
inline const sigset_t& heededSignals()
{
    static const sigset_t heeded = [] {
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
