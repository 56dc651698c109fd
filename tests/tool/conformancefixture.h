// SPDX-License-Identifier: BSD-3-Clause
// The coercion table of rules that stand in a test.
#pragma once

#include "tool/conformance/conformancetable.h"

#include <string>
#include <vector>

namespace kxtest {

using kxtool::CoercionRow;
using kxtool::RuleFile;

inline std::vector<CoercionRow> tableOf(const std::vector<RuleFile>& files)
{
    std::vector<const RuleFile*> run;
    for (const RuleFile& file : files) run.push_back(&file);
    return kxtool::coercionTable(run, "m");
}

inline std::vector<CoercionRow> tableOf(const std::string& rules)
{
    std::vector<RuleFile> files;
    files.push_back(kxtool::readRuleText(rules, "m/X.map"));
    return tableOf(files);
}

/// A line a row, without the rule's place.
inline std::string shown(const std::vector<CoercionRow>& rows)
{
    std::string text;
    for (const CoercionRow& row : rows) {
        text += "|";
        for (const std::string& cell : {row.attribute, row.tag, row.action, row.value, row.condition})
            text += cell.empty() ? " |" : " " + cell + " |";
        text += "\n";
    }
    return text;
}

} // namespace kxtest
