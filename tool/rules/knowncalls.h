// SPDX-License-Identifier: BSD-3-Clause
// What comes of each built-in's calls, by what is known of their arguments. Only the table of built-ins asks here.
#pragma once

#include "tool/rules/known.h"

#include <span>

namespace kxtool::knowncalls {

using Arguments = std::span<const Known>;

Known null(Arguments arguments);
Known equals(Arguments arguments);
Known negated(Arguments arguments);
Known allOf(Arguments arguments);
Known firstPresent(Arguments arguments);
Known choice(Arguments arguments);
Known table(Arguments arguments);
Known joined(Arguments arguments);
Known split(Arguments arguments);
Known substr(Arguments arguments);
Known contains(Arguments arguments);
Known length(Arguments arguments);
Known offset(Arguments arguments);
Known upper(Arguments arguments);
Known lower(Arguments arguments);
Known age(Arguments arguments);
Known sum(Arguments arguments);
Known difference(Arguments arguments);
Known product(Arguments arguments);
Known quotient(Arguments arguments);
Known remainder(Arguments arguments);
Known range(Arguments arguments);
Known chance(Arguments arguments);
Known codeNumber(Arguments arguments);
Known codeText(Arguments arguments);
Known rootOf(Arguments arguments);

} // namespace kxtool::knowncalls
