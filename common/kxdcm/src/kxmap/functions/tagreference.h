// SPDX-License-Identifier: BSD-3-Clause
// What a tag reference, "(0010,0010)", finds.
#pragma once

#include "kxmap.h"

namespace kxmap {

/// @param group and element: digits as a rule has them; null for NULL.
/// @return the dataset's element; null when it has none, or one of both is NULL or no hexadecimal number.
DcmElement* findTag(MappingSession& session, const char* group, const char* element);

/// Says whether the arguments of a tag reference are two literals, as nearly always. These need no values to be read.
bool isPlainTag(const std::list<Expression*>& params);

/// findTag() for two literals.
DcmElement* findPlainTag(MappingSession& session, const std::list<Expression*>& params);

} // namespace kxmap
