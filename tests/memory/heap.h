// SPDX-License-Identifier: BSD-3-Clause
// The program's operators new and delete, replaced by ones that count what the tested code holds and fail on demand.
#pragma once

#include <string>

namespace kxtest::heap {

/// From construction to destruction every allocation is numbered from 1, counted among the held ones until it is
/// released, however late, and failed as asked. One at a time, on one thread.
class Shortage {
public:
    /// @param first the allocation that fails; 0 for none.
    /// @param lasting whether those after it fail, too.
    Shortage(long first, bool lasting);
    ~Shortage();
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;
};

/// @return how many allocations the latest shortage has seen.
long seen();

/// @return how many of the numbered allocations, of any shortage so far, nobody has released.
long held();

/// @return how many of them each library or program asked for, as lines "name: count"; they are no longer counted.
std::string heldBy();

} // namespace kxtest::heap
