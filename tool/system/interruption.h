// SPDX-License-Identifier: BSD-3-Clause
// Ending a long run by a signal, also while a write waits because nobody reads.
#pragma once

#include "tool/system/descriptor.h"
#include "tool/system/signals.h"

#include <sys/time.h>

#include <chrono>
#include <set>
#include <string_view>

namespace kxtool {

/// While it lives, the ending signals do not end the process but are read here; a broken pipe is an error of write(); and a
/// timer interrupts system calls that wait. Only one may live at a time. Workers call unblockSignalsInWorker() instead.
class Interruption {
public:
    /// How often a waiting system call is interrupted.
    static constexpr int kTickMs = 200;

    /// @throws FileError
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// @return a descriptor for poll(): readable when a signal has arrived. Only readSignals() reads it.
    int descriptor() const { return signals_.get(); }

    /// Reads the signals that have arrived. @return the last ending signal so far, or 0.
    int readSignals();

    /// Does as if this ending signal had arrived.
    void end(int signalNumber);

    /// Writes all bytes, however long it takes. After an ending signal, all calls together wait one more second at most.
    /// @return 0, or the system's error number: EINTR when it gave up. Some of the bytes may be written then.
    int write(int descriptor, std::string_view bytes);

    /// Ends this process by a signal, as the signal does by default. Buffered output must be written before.
    [[noreturn]] static void endBySignal(int signalNumber);

private:
    using Clock = std::chrono::steady_clock;

    const SignalsHeld held_;
    Descriptor signals_;
    struct sigaction alarmBefore_ = {};
    struct sigaction pipeBefore_ = {};
    itimerval timerBefore_ = {};
    int arrived_ = 0;
    Clock::time_point writeDeadline_; // of write(), once a signal has arrived
    std::set<int> blocked_;           // descriptors that write() gave up
};

} // namespace kxtool
