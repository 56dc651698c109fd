// SPDX-License-Identifier: BSD-3-Clause
// Options that several commands share.
#include "tool/rules/ruleoptions.h"

#include "tool/console/output.h"
#include "tool/rules/mappingsfolder.h"

#include <dcmtk/dcmdata/dcdict.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace kxtool {
namespace {

std::string checkUserField(const std::string& assignment)
{
    const std::size_t equals = assignment.find('=');
    if (equals != std::string::npos && equals > 0) return {};
    return fmt::format("'{}' has not the form NAME=TEXT", assignment);
}

void reportLostRules(const RuleFile& file)
{
    const std::size_t count = file.badCount();
    if (count == 0) return;
    const auto first = std::ranges::find_if(file.lines, &RuleLine::isLost);
    std::string message = first->message(); // none where the left side has no form that the engine knows
    if (first->kind == RuleLine::Kind::WithoutEquals) message = "it has no \"=\"";
    reportWarning(fmt::format("{}: {} {} dropped, the first at line {}: {}", printable(file.path.native()), count,
                              count == 1 ? "rule" : "rules", first->line,
                              message.empty() ? "the left side is no target" : printable(message)));
}

Direction directionOf(const RuleChoice& choice)
{
    return choice.isOutbound ? Direction::Outbound : Direction::Inbound;
}

std::string didYouMean(const RuleChoice& choice)
{
    const std::string meant =
        titleMeantBy(findMappingsFolder(choice.mappingsFolder), directionOf(choice), choice.aeTitle);
    return meant.empty() ? "" : fmt::format("; did you mean {}?", printable(meant));
}

// No error: an AE title without a file of its own gets what everybody gets.
void reportMissingTitle(const RuleChoice& choice)
{
    for (const MappingSlot& slot :
         slotsFor(findMappingsFolder(choice.mappingsFolder), directionOf(choice), choice.aeTitle)) {
        if (slot.role != MappingSlot::Role::Title || slot.isThere) continue;
        const std::string hint = didYouMean(choice);
        reportWarning(
            fmt::format("no file {}: the global mapping files alone apply{}", printable(slot.name.native()), hint));
    }
}

} // namespace

void addRuleOptions(CLI::App& command, RuleChoice& choice)
{
    command.add_option("--aet", choice.aeTitle, "The AE title of the remote system, as its mapping file is named")
        ->type_name("TITLE");
    command
        .add_option("--mappings", choice.mappingsFolder,
                    "The folder with the *.map files and the folder \"global\"; default: $DICOM_VAR/mappings")
        ->type_name("DIR");
    command.add_flag("--outbound", choice.isOutbound, "Use the rules for what is sent to TITLE, not received from it");
    command
        .add_option("--single", choice.singleFile,
                    "Apply this mapping file alone; the options above then choose nothing")
        ->type_name("FILE.map");
}

void requireRuleChoice(const RuleChoice& choice)
{
    if (choice.aeTitle.empty() && choice.singleFile.empty()) throw CLI::RequiredError("--aet or --single");
}

void addUserFieldOption(CLI::App& command, std::vector<std::string>& assignments)
{
    command.add_option("--set-user", assignments, "Set a custom field before each file; may be repeated")
        ->type_name("NAME=TEXT")
        ->allow_extra_args(false)
        ->check(checkUserField);
}

void setUserFields(const std::vector<std::string>& assignments, KXCustomFields& fields)
{
    for (const std::string& assignment : assignments) {
        const std::size_t equals = assignment.find('=');
        fields.setFieldValue(assignment.substr(0, equals).c_str(), assignment.substr(equals + 1).c_str());
    }
}

void requireDictionary()
{
    if (dcmDataDict.isDictionaryLoaded()) return;
    throw std::runtime_error("DCMTK's data dictionary is not loaded: without it every tag is unknown and no rule would "
                             "write. Install the dictionary, or set DCMDICTPATH to it.");
}

std::vector<RuleFile> readChosenRules(const RuleChoice& choice, std::size_t& lostCount)
{
    std::vector<RuleFile> files;
    for (const std::filesystem::path& path : filesOf(choice)) {
        files.push_back(readRuleFile(path));
        reportLostRules(files.back());
        lostCount += files.back().badCount();
    }
    if (choice.singleFile.empty() && !files.empty()) reportMissingTitle(choice);
    return files;
}

std::string whyNoRules(const RuleChoice& choice)
{
    return fmt::format("no mapping file applies to AE title {}{}", printable(choice.aeTitle), didYouMean(choice));
}

} // namespace kxtool
