// SPDX-License-Identifier: BSD-3-Clause
// What the shell's Tab key offers: functions, dictionary keywords, tags, names of variables and fields, commands.
#pragma once

#include "kxmap.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

/// The shell's own commands, ":diff" and so on.
extern const std::vector<std::string> kShellCommands;

struct Completion {
    std::size_t begin = 0;           ///< from here to the cursor stands what is completed
    std::string text;                ///< what comes in its place; the same text when nothing is certain
    std::vector<std::string> offers; ///< each with an explanation where there is one; empty when `text` is final
};

/// @param line up to the cursor. @param session its dataset's tags come first, and its variables and fields are known.
Completion complete(std::string_view line, const MappingSession& session);

} // namespace kxtool
