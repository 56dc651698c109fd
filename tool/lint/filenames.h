// SPDX-License-Identifier: BSD-3-Clause
// Names in a mappings folder that seem to mean another thing than they do.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kxtool {

/// What a name does, and what to do about it.
struct NameSlip {
    std::string message;
    std::string hint;
};

/// @param title of a file "title.map" in the folder. @return none for a name that an AE title may well have.
std::optional<NameSlip> slipInTitle(std::string_view title);

/// @param name of a folder with mapping files in it, beside "global".
NameSlip slipInFolder(std::string_view name);

/// @param name of a file that the engine passes over. @return none for a name that seems to mean no mapping file.
std::optional<NameSlip> slipInSuffix(std::string_view name);

} // namespace kxtool
