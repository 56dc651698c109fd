// SPDX-License-Identifier: BSD-3-Clause
// -WNAME and -Wno-NAME: which rows of a table of warnings are wanted.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace kxtool {

/// Adds -W, which may be repeated, and --list-warnings. @param help of -W.
void addSwitchOptions(CLI::App& command, std::vector<std::string>& switches, bool& listsWarnings, const char* help);

/// Reads what follows -W: a name, "all", or one of them behind "no-". A name may begin with "no-" itself.
/// @param nameOf gives the name of a row that may be switched; null for others.
/// @param set takes the index of each row that is meant, and whether it is to be on.
/// @return false when there is no such name.
template <typename Row, std::size_t kCount, typename NameOf, typename Set>
bool readSwitch(std::string_view text, const Row (&rows)[kCount], NameOf nameOf, Set set)
{
    const bool isName = std::ranges::any_of(rows, [&](const Row& row) {
        const char* name = nameOf(row);
        return name != nullptr && text == name;
    });
    const bool isOn = isName || !text.starts_with("no-");
    if (!isOn) text.remove_prefix(3);
    bool isKnown = false;
    for (std::size_t index = 0; index < kCount; ++index) {
        const char* name = nameOf(rows[index]);
        if (name == nullptr || (text != "all" && text != name)) continue;
        set(index, isOn);
        isKnown = true;
    }
    return isKnown;
}

/// "length                warning  a value is longer than its VR allows"
void printSwitch(const char* name, const char* kind, const char* sees);

} // namespace kxtool
