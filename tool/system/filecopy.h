// SPDX-License-Identifier: BSD-3-Clause
// Copying bytes from one open file to another inside the system, which may let both share them.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace kxtool {

/// Appends `count` bytes of `source`, from `begin` on, at the present position of `target`. The position of `source` is
/// neither used nor changed.
/// @return 0, the system's error number, or kSourceEnded (sink.h).
int copyBytes(int source, off_t begin, std::uintmax_t count, int target);

} // namespace kxtool
