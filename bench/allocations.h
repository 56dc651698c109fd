// SPDX-License-Identifier: BSD-3-Clause
// How often memory is asked for: a program that links allocations.cc counts its operators new, DCMTK's calls included.
#pragma once

#include <cstdint>

namespace bench {

/// @return the calls of operator new since the program began.
std::uint64_t allocations();

} // namespace bench
