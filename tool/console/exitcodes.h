// SPDX-License-Identifier: BSD-3-Clause
// What kxmap's exit status says, the same for every command.
#pragma once

namespace kxtool {

constexpr int kAllGood = 0;     ///< everything asked for was done, nothing was found
constexpr int kShortcoming = 1; ///< some files failed, or a mapping file has faults
constexpr int kUnusable = 2;    ///< a usage error, or what the command needs could not be read

} // namespace kxtool
