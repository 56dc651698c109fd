// SPDX-License-Identifier: BSD-3-Clause
// The coercion table of a conformance statement (DICOM PS3.2): what the rules of one run do to the attributes of a
// dataset.
#pragma once

#include "tool/rules/rulefile.h"

#include <filesystem>
#include <string>
#include <vector>

namespace kxtool {

/// One line of the table. Texts may hold line feeds.
struct CoercionRow {
    std::string attribute; ///< "Station Name"
    std::string tag;       ///< "(0008,1010)"
    std::string action;    ///< "added", "modified", "added or modified", "removed"
    std::string value;     ///< in words
    std::string condition; ///< in words; empty for always
    std::string source;    ///< "global/pre.map:12"
};

/// @param files those of one run, in their order.
/// @param folder what the names of files are told below.
/// @return the rows in the order of the rules. Rules that set variables and custom fields have none: what those hold is
///         said where they are used.
std::vector<CoercionRow> coercionTable(const std::vector<const RuleFile*>& files, const std::filesystem::path& folder);

} // namespace kxtool
