// SPDX-License-Identifier: BSD-3-Clause
// Look-up of built-in functions for the parser.
#pragma once

#include "kxmap.h"

namespace kxmap {

/// @param name as a rule writes it, every byte compared.
/// @return the first entry of funcList of that name; null when there is none.
const FunctionDef* findFunction(const char* name);

} // namespace kxmap
