// SPDX-License-Identifier: BSD-3-Clause
// kxmap apply: the rules of an AE title, applied to files. Here is its command line; applyrun.h does it.
#include "tool/apply/applyrun.h"
#include "tool/commands/commands.h"
#include "tool/rules/ruleoptions.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <utility>

namespace kxtool {
namespace {

void addOutputOptions(CLI::App& command, ApplyOptions& options)
{
    command
        .add_option("-o,--output", options.output,
                    "Where the result goes: a file for one file IN, else a folder; may be IN itself")
        ->type_name("OUT");
    command.add_flag("--in-place", options.isInPlace, "Each result replaces its input; instead of --output");
    command.add_flag("--dry-run", options.files.isDryRun,
                     "Print what would change, a line each, and write nothing but a report");
    command
        .add_option("--report", options.report,
                    "Write a line of JSON for each file: what changed, by which rule, how long it took")
        ->type_name("FILE.jsonl");
    command.add_flag("--print-user", options.files.printsUserFields,
                     "Print the custom fields after each file: file, name and text, separated by tabs");
    command.add_flag("--fsync", options.files.isDurable,
                     "Have results on the disk before they are reported, so that a power failure takes none of them");
    command.add_flag(
        "--clean", options.cleans,
        "Remove the temporary files that killed runs have left in the folders worked on; without it they are\n"
        "named");
    command.add_flag("--progress,!--no-progress", options.showsProgress,
                     "Show how far the run is; without the option on a terminal, and with --verbose");
}

void addOriginalsOptions(CLI::App& command, ApplyOptions& options)
{
    const CLI::Validator isLongString(whyNoLongString, "TEXT");
    ModificationNotes& notes = options.files.notes;
    CLI::Option* originals =
        command.add_flag("--original-attributes", options.files.keepsOriginals,
                         "Keep what was changed in the dataset's Original Attributes Sequence (0400,0561)");
    command
        .add_option("--source", notes.source, "Source of Previous Values; default: the AE title, but for --outbound")
        ->needs(originals)
        ->check(isLongString);
    command.add_option("--system", notes.system, "Modifying System; default: kxmap@HOST")
        ->needs(originals)
        ->check(isLongString);
    command.add_option("--reason", notes.reason, "Reason for the modification; default: COERCE")
        ->needs(originals)
        ->check(CLI::IsMember({"COERCE", "CORRECT"}));
}

constexpr const char* kFooter =
    "What is below a folder IN keeps its place below OUT, and so do the paths of a list. The transfer syntax\n"
    "and the file meta information stay, but for changed SOP Class and Instance UIDs. Each result takes its\n"
    "place at once and whole, whatever ends the run; a file that cannot be read or written is reported, and\n"
    "the others go on. --verbose says more.\n\n"
    "Examples:\n"
    "  kxmap apply --aet CT1 -o coerced/ scans/ extra.dcm\n"
    "  kxmap apply --aet CT1 --mappings new/mappings --dry-run image.dcm\n"
    "  kxmap apply --single fix.map --set-user ward=7B --print-user -o out.dcm in.dcm\n"
    "  find archive -name '*.dcm' -print0 | kxmap apply --aet CT1 -j 0 --fsync --in-place --from-file -\n\n"
    "Exit codes: 0 all files done, 1 some failed or rules are dropped, 2 usage error or no rules.";

void requireInputsAndOutput(const ApplyOptions& options)
{
    requireRuleChoice(options.rules);
    if (options.inputs.empty() && options.list.empty()) throw CLI::RequiredError("IN or --from-file");
    for (const auto& [name, value] : {std::pair("--output", &options.output), std::pair("--report", &options.report)}) {
        if (*value == "-") throw CLI::ValidationError(name, "\"-\" is no file: write ./- for one of this name");
    }
    const int ways = (options.output.empty() ? 0 : 1) + (options.isInPlace ? 1 : 0);
    if (ways > 1) throw CLI::ExcludesError("--in-place", "--output");
    if (ways == 0 && !options.files.isDryRun) throw CLI::RequiredError("--output, --in-place or --dry-run");
}

} // namespace

void addApply(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand("apply", "Apply an AE title's rules to DICOM files");
    const auto options = std::make_shared<ApplyOptions>();
    addRuleOptions(*command, options->rules);
    addUserFieldOption(*command, options->files.userFields);
    addOutputOptions(*command, *options);
    addOriginalsOptions(*command, *options);
    command->add_option("-j,--jobs", options->workers, "How many processes work; 0 for one a processor; default: 1")
        ->type_name("N")
        ->check(CLI::Range(0, 1024));
    command
        ->add_option("--from-file", options->list,
                     "Take more names IN from this file, ended by NUL or else by line feeds; - for standard input")
        ->type_name("LIST");
    command->add_flag("--skip-foreign", options->skipsForeign, kSkipForeignHelp);
    command->add_option("IN", options->inputs, "DICOM files, and folders with all files below them")->type_name("");
    command->footer(kFooter);
    command->callback([=, &exitCode] {
        requireInputsAndOutput(*options);
        exitCode = runApply(*options);
    });
}

} // namespace kxtool
