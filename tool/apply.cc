// SPDX-License-Identifier: BSD-3-Clause
// kxmap apply: the rules of an AE title, applied to files.
#include "tool/commands.h"
#include "tool/dicomfile.h"
#include "tool/exitcodes.h"
#include "tool/inputs.h"
#include "tool/output.h"
#include "tool/rules.h"

#include <dcmtk/dcmdata/dcdict.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace kxtool {
namespace {

struct ApplyOptions {
    RuleChoice rules;
    std::vector<std::string> userFields; // NAME=TEXT
    bool printsUserFields = false;
    std::string output;
    std::vector<std::string> inputs;
};

// Says before the first file is touched what of the rules will not be applied.
void reportLostRules(const Rules& rules, const RuleChoice& choice)
{
    for (const std::filesystem::path& file : rules.files()) {
        const DroppedLines dropped = findDroppedLines(file);
        if (dropped.count == 0) continue;
        reportWarning(fmt::format("{}: {} {} dropped, the first at line {}: {}", file.native(), dropped.count,
                                  dropped.count == 1 ? "rule" : "rules", dropped.firstLine,
                                  printable(dropped.firstMessage)));
    }
    if (rules.files().empty()) reportWarning(fmt::format("no mapping file applies to AE title {}", choice.aeTitle));
}

void setUserFields(const std::vector<std::string>& assignments, KXCustomFields& fields)
{
    for (const std::string& assignment : assignments) {
        const std::size_t equals = assignment.find('=');
        fields.setFieldValue(assignment.substr(0, equals).c_str(), assignment.substr(equals + 1).c_str());
    }
}

void printUserFields(const std::filesystem::path& file, const KXCustomFields& fields)
{
    for (const auto& [name, text] : fields.fields())
        printLine(fmt::format("{}\t{}\t{}", printable(file.native()), printable(name), printable(text)));
}

void applyToFile(const Input& input, OutputPlan& plan, const Rules& rules, const ApplyOptions& options)
{
    const auto place = plan.placeOf(input);
    if (!place) return;
    DicomFile file(input.file);
    MappingSession session;
    session.dataset = &file.dataset();
    setUserFields(options.userFields, session.customFields);
    rules.apply(session);
    file.save(*place);
    if (options.printsUserFields) printUserFields(input.file, session.customFields);
    reportNote(fmt::format("{} -> {}", input.file.native(), place->native()));
}

int applyToAll(const ApplyOptions& options)
{
    const Rules rules(options.rules);
    reportLostRules(rules, options.rules);
    unsigned failures = 0;
    const auto inputs = collectInputs(options.inputs, options.output, [&failures](const FileError& error) {
        reportError(error.what());
        ++failures;
    });
    OutputPlan plan(options.output, options.inputs, inputs);
    for (const Input& input : inputs) {
        try {
            applyToFile(input, plan, rules, options);
        } catch (const FileError& error) {
            reportError(error.what());
            ++failures;
        } catch (const std::exception& error) { // a rule's std::logic_error, exhausted memory
            reportError(fmt::format("{}: {}", input.file.native(), error.what()));
            ++failures;
        }
    }
    reportNote(fmt::format("{} failed, {} files found", failures, inputs.size()));
    return failures == 0 ? kAllGood : kShortcoming;
}

int runApply(const ApplyOptions& options)
{
    if (!dcmDataDict.isDictionaryLoaded()) {
        reportError("DCMTK's data dictionary is not loaded: without it every tag is unknown and no rule would write. "
                    "Install the dictionary, or set DCMDICTPATH to it.");
        return kUnusable;
    }
    try {
        return applyToAll(options);
    } catch (const std::exception& error) { // no rules, no place for the results
        reportError(error.what());
        return kUnusable;
    }
}

std::string checkUserField(const std::string& assignment)
{
    const std::size_t equals = assignment.find('=');
    if (equals != std::string::npos && equals > 0) return {};
    return fmt::format("'{}' has not the form NAME=TEXT", assignment);
}

} // namespace

void addApply(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand("apply", "Apply an AE title's rules to DICOM files");
    const auto options = std::make_shared<ApplyOptions>();
    RuleChoice& rules = options->rules;
    CLI::Option* aeTitle =
        command->add_option("--aet", rules.aeTitle, "The AE title of the remote system, as its mapping file is named")
            ->type_name("TITLE");
    command
        ->add_option("--mappings", rules.mappingsFolder,
                     "The folder with the *.map files and the folder \"global\"; default: $DICOM_VAR/mappings")
        ->type_name("DIR");
    command->add_flag("--outbound", rules.isOutbound, "Use the rules for what is sent to TITLE, not received from it");
    CLI::Option* single = command
                              ->add_option("--single", rules.singleFile,
                                           "Apply this mapping file alone; the options above then choose nothing")
                              ->type_name("FILE.map");
    command->add_option("--set-user", options->userFields, "Set a custom field before each file; may be repeated")
        ->type_name("NAME=TEXT")
        ->allow_extra_args(false)
        ->check(checkUserField);
    command->add_flag("--print-user", options->printsUserFields,
                      "Print the custom fields after each file: file, name and text, separated by tabs");
    command
        ->add_option("-o,--output", options->output,
                     "Where the result goes: a file for one file IN, else a folder; may be IN itself")
        ->type_name("OUT")
        ->required();
    command->add_option("IN", options->inputs, "DICOM files, and folders with all files below them")
        ->type_name("")
        ->required();
    command->footer(
        "What is below a folder IN keeps its place below OUT. The transfer syntax and the file meta information\n"
        "stay, but for changed SOP Class and Instance UIDs. Each result takes its place at once and whole; a\n"
        "file that cannot be read or written is reported, and the others go on. --verbose says more.\n\n"
        "Examples:\n"
        "  kxmap apply --aet CT1 -o coerced/ scans/ extra.dcm\n"
        "  kxmap apply --aet CT1 --mappings new/mappings -o image.dcm image.dcm\n"
        "  kxmap apply --single fix.map --set-user ward=7B --print-user -o out.dcm in.dcm\n\n"
        "Exit codes: 0 all files done, 1 some failed, 2 usage error or no rules.");
    command->callback([=, &exitCode] {
        if (aeTitle->empty() && single->empty()) throw CLI::RequiredError("--aet or --single");
        exitCode = runApply(*options);
    });
}

} // namespace kxtool
