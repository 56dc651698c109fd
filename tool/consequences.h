// SPDX-License-Identifier: BSD-3-Clause
// What rules made wrong in a dataset: theirs alone, not what the sender's values had wrong already.
#pragma once

#include "tool/chartext.h"
#include "tool/recorder.h"

#include <string>
#include <vector>

namespace kxtool {

/// One thing that a rule made wrong.
struct Consequence {
    const char* name; ///< a stable word, see consequencesHelp()
    Place place;
    const Step* step; ///< the last one that had a part in it; not null
    std::string text; ///< one line of UTF-8, fit to be shown
};

/// Looks at everything that a run changed.
/// @param recording made with originals, and still there as long as the result is used.
/// @param dataset as the run left it.
/// @return in the order of the rules.
std::vector<Consequence> findConsequences(const Recording& recording, DcmDataset& dataset);

/// @return lines for a command's help: each name with what it stands for.
std::string consequencesHelp();

} // namespace kxtool
