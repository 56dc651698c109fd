// SPDX-License-Identifier: BSD-3-Clause
// What rules made wrong in a dataset. Faults that the sender's values already had are left out.
#pragma once

#include "tool/record/recorder.h"

#include <bitset>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

/// One thing that a rule made wrong.
struct Consequence {
    const char* name; ///< a stable word, see consequencesHelp()
    Place place;
    const Step* step; ///< the last one that had a part in it; not null
    std::string text; ///< one line of UTF-8, fit to be shown
};

constexpr std::size_t kConsequenceCount = 11;

/// Which consequences are wanted: all, at first.
class ConsequenceSwitches {
public:
    ConsequenceSwitches() { isOn_.set(); }

    /// @param text what follows -W: a name, "all", or one of them behind "no-". @return false when there is none.
    bool set(std::string_view text);

    bool isOn(std::string_view name) const;

private:
    std::bitset<kConsequenceCount> isOn_;
};

/// Checks everything that a run changed.
/// @param recording must outlive the result.
/// @param dataset as the run left it.
/// @param begin the number of the first step that is looked at.
/// @return in the order of the rules.
std::vector<Consequence> findConsequences(const Recording& recording, DcmDataset& dataset,
                                          const ConsequenceSwitches& wanted, std::size_t begin);

/// @return lines for a command's help: each name with what it stands for.
std::string consequencesHelp();

/// Prints the names, as "kxmap check" does those of its warnings.
void listConsequences();

} // namespace kxtool
