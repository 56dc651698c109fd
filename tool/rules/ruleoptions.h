// SPDX-License-Identifier: BSD-3-Clause
// The command line options by which commands choose their rules and set custom fields, the same everywhere.
#pragma once

#include "tool/rules/rulefile.h"
#include "tool/rules/rules.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kxtool {

/// Adds --aet, --mappings, --outbound and --single.
void addRuleOptions(CLI::App& command, RuleChoice& choice);

/// For a command's callback. @throws CLI::RequiredError when neither an AE title nor a single file was given.
void requireRuleChoice(const RuleChoice& choice);

/// Adds --set-user, which may be repeated; each assignment has the form NAME=TEXT.
void addUserFieldOption(CLI::App& command, std::vector<std::string>& assignments);

void setUserFields(const std::vector<std::string>& assignments, KXCustomFields& fields);

/// @throws std::runtime_error when DCMTK's data dictionary is not there: no rule could write then.
void requireDictionary();

/// Reads the mapping files of a run, once each, in their order. What is dropped of them is reported as warnings.
/// @return the files, perhaps none, and in `lostCount` how many lines are dropped with a message.
/// @throws FileError for what cannot be read.
std::vector<RuleFile> readChosenRules(const RuleChoice& choice, std::size_t& lostCount);

/// @return what to say where no file was chosen.
std::string whyNoRules(const RuleChoice& choice);

} // namespace kxtool
