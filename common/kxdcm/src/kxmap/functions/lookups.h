// SPDX-License-Identifier: BSD-3-Clause
// The everyday tag reference, "(0010,0010)": two literals, which need no values to be read.
#pragma once

#include "kxmap.h"

namespace kxmap {

/// Says whether the arguments of a tag reference are two literals.
bool isPlainTag(const std::list<Expression*>& params);

/// @param params two literals.
/// @return the dataset's element; null when it has none, or a literal is no hexadecimal number.
DcmElement* findPlainTag(MappingSession& session, const std::list<Expression*>& params);

} // namespace kxmap
