// SPDX-License-Identifier: BSD-3-Clause
// Files in memory that stand in for standard error.
#pragma once

#include <string>

namespace kxtool {

/// @return what is in an open file, which is then empty; with a line feed at its end.
std::string takeContent(int file);

} // namespace kxtool
