// SPDX-License-Identifier: BSD-3-Clause
// How a long run is asked to end, also while nobody takes what it writes.
#pragma once

#include "tool/system/descriptor.h"
#include "tool/system/signals.h"

#include <sys/time.h>

#include <chrono>
#include <set>
#include <string_view>

namespace kxtool {

/// While it lives, the ending signals end nothing, but are read here; a broken pipe is an error of write(); and a timer
/// breaks into system calls that wait. One at a time, and not in workers: those call heedSignalsAsWorker().
class Interruption {
public:
    /// How often a waiting system call is broken into.
    static constexpr int kTickMs = 200;

    /// @throws FileError
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// @return what can be read when a signal has arrived; for poll(). Reading is heed()'s part.
    int descriptor() const { return signals_.get(); }

    /// @return the last ending signal that has arrived, or 0.
    int heed();

    /// Takes the run for ended by this signal, as if it had arrived here.
    void end(int signalNumber);

    /// Writes all bytes, however long it takes; after an ending signal it waits no longer than a second, for all its
    /// calls together.
    /// @return 0, or the system's error number: EINTR when it gave up. Some of the bytes may be written then.
    int write(int descriptor, std::string_view bytes);

    /// Ends this process by a signal, as if it had never been read. Output that is buffered must be written.
    [[noreturn]] static void endBySignal(int signalNumber);

private:
    using Clock = std::chrono::steady_clock;

    const SignalsHeld held_;
    Descriptor signals_;
    struct sigaction alarmBefore_ = {};
    struct sigaction pipeBefore_ = {};
    itimerval timerBefore_ = {};
    int arrived_ = 0;
    Clock::time_point patience_; // until when write() waits, once a signal has arrived
    std::set<int> abandoned_;    // descriptors that took nothing until then
};

} // namespace kxtool
