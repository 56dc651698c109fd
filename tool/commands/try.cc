// SPDX-License-Identifier: BSD-3-Clause
// kxmap try: what an AE title's rules would do to files, and what they would make wrong. Nothing is written.
#include "tool/commands/commands.h"
#include "tool/console/exitcodes.h"
#include "tool/console/output.h"
#include "tool/console/switches.h"
#include "tool/console/table.h"
#include "tool/dicom/dicomfile.h"
#include "tool/dicom/inputs.h"
#include "tool/record/reach.h"
#include "tool/record/recorder.h"
#include "tool/record/runreport.h"
#include "tool/rules/ruleoptions.h"
#include "tool/system/sink.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kxtool {
namespace {

struct TryOptions {
    RuleChoice rules;
    std::vector<std::string> userFields; // NAME=TEXT
    std::string format = "text";
    std::vector<std::string> warnings; // what follows -W
    bool listsWarnings = false;
    bool showsTrace = false;
    bool skipsForeign = false;
    ColorMode color = ColorMode::Auto;
    std::vector<std::string> inputs;
};

/// Processes the files and keeps the exit code.
class Trial {
public:
    Trial(const TryOptions& options, const ConsequenceSwitches& wanted)
        : options_(options), wanted_(wanted), look_{outputWidth(), usesColor(options.color)}
    {
        std::size_t lostCount = 0;
        files_ = readChosenRules(options.rules, lostCount);
        if (files_.empty()) throw std::runtime_error(whyNoRules(options.rules));
        if (lostCount > 0) raise(kShortcoming);
    }

    int run()
    {
        const auto unreadable = [this](const std::filesystem::path&, const FileError& error) {
            reportError(error.what());
            raise(kUnusable);
        };
        for (const Input& input : collectInputs(options_.inputs, {{}, options_.skipsForeign}, unreadable)) {
            try {
                tryFile(input.file);
            } catch (const FileError& error) {
                unreadable(input.file, error);
            } catch (const std::exception& error) { // exhausted memory
                unreadable(input.file, FileError(input.file, error.what()));
            }
        }
        return exitCode_;
    }

private:
    void raise(int exitCode) { exitCode_ = std::max(exitCode_, exitCode); }

    void tryFile(const std::filesystem::path& path)
    {
        RulesInOrder rules;
        for (const RuleFile& one : files_) rules.push_back(&one);
        DicomFile file(path, extentOf(rules));
        MappingSession session;
        session.dataset = &file.dataset();
        setUserFields(options_.userFields, session.customFields);
        Recording recording;
        recording.run(rules, session);
        const std::string obstacle = recording.failure().empty() ? whyUnwritable(file, path) : "";
        const RunReport report(recording, file.dataset(), wanted_);
        if (options_.format == "json") printJson(path, report, obstacle);
        else printText(path, recording, report, obstacle);
        if (!report.consequences().empty() || !recording.failure().empty() || !obstacle.empty()) raise(kShortcoming);
    }

    /// Does what "kxmap apply" would do with the file, but for keeping the result.
    /// @return empty, or why it cannot be written.
    static std::string whyUnwritable(DicomFile& file, const std::filesystem::path& path)
    {
        try {
            warnOfDropped(path, file.settle());
            CountingSink sink(path);
            file.writeTo(sink);
            file.requireUnchanged();
            return {};
        } catch (const FileError& error) {
            const std::string text = error.what();
            const std::string prefix = printable(path.native()) + ": "; // the report begins with it
            return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
        }
    }

    void printText(const std::filesystem::path& path, const Recording& recording, const RunReport& report,
                   const std::string& obstacle)
    {
        if (!isFirst_) printLine("");
        isFirst_ = false;
        const std::string name = colored(shownUtf8(path.native()), Color::Bold, look_.isColored);
        printLine(fmt::format("{}: {}", name, report.summary()));
        const auto print = [](const std::string& lines) {
            if (!lines.empty()) printLine(std::string_view(lines).substr(0, lines.size() - 1));
        };
        if (options_.showsTrace) {
            print(report.trace(look_));
            if (!recording.steps().empty() && !recording.changes().empty()) printLine("");
        }
        print(report.changes(look_));
        print(report.warnings(look_));
        if (!recording.failure().empty())
            printFailure(fmt::format("{}:{}: the rules end here: {}",
                                     shownUtf8(recording.steps().back().file->path.filename().native()),
                                     recording.steps().back().rule->line, shownUtf8(recording.failure())));
        if (!obstacle.empty()) printFailure("cannot be written: " + shownUtf8(obstacle));
    }

    void printFailure(const std::string& text) const
    {
        printLine(fmt::format("  {} {}", colored("failed:", Color::Red, look_.isColored), text));
    }

    void printJson(const std::filesystem::path& path, const RunReport& report, const std::string& obstacle)
    {
        nlohmann::ordered_json line = {{"file", path.native()}, {"aet", options_.rules.aeTitle}};
        line.update(report.json(options_.showsTrace));
        line["unwritable"] = obstacle.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(obstacle);
        printLine(line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    }

    const TryOptions& options_;
    const ConsequenceSwitches& wanted_;
    const Look look_;
    std::vector<RuleFile> files_;
    bool isFirst_ = true;
    int exitCode_ = kAllGood;
};

ConsequenceSwitches switchesOf(const std::vector<std::string>& warnings)
{
    ConsequenceSwitches wanted;
    for (const std::string& warning : warnings) {
        if (!wanted.set(warning))
            throw CLI::ValidationError("-W" + warning,
                                       "no warning of that name (\"kxmap try --list-warnings\" lists them)");
    }
    return wanted;
}

int runTry(const TryOptions& options)
{
    const ConsequenceSwitches wanted = switchesOf(options.warnings);
    try {
        requireDictionary();
        return Trial(options, wanted).run();
    } catch (const std::exception& error) { // no rules, no dictionary
        reportError(error.what());
        return kUnusable;
    }
}

std::string footer()
{
    return "Does all that \"kxmap apply\" does, and keeps nothing of it.\n"
           "Prints what changed: + added, ~ changed, - deleted; \"-\" where there is nothing. Texts are shown in "
           "UTF-8,\n"
           "bytes that do not show as \\x1B. Custom fields are USER(name), variables $(name).\n"
           "\n"
           "Warnings tell what the rules made wrong, not what the sender's values had wrong already:\n" +
           consequencesHelp() +
           "\n"
           "JSON is one object a line for each file:\n"
           "  file, aet\n"
           "  changes   array of: sign (\"+\", \"~\", \"-\"), kind (\"element\", \"custom field\", \"variable\"), "
           "place\n"
           "            (\"(0040,0275)[0].(0040,0007)\", items from 0), name (of elements), vr, before, after (text, "
           "or\n"
           "            null for absent), rules (array of: file, line, text)\n"
           "  trace     with --trace, array of: rule (file, line, text), kind, place, name, value (text, or null for\n"
           "            NULL), effect (\"set\", \"created\", \"deleted\", \"was absent\", \"skipped as unknown\",\n"
           "            \"refused\", \"no such item\", \"no change\", \"failed\"), before, after, messages (array of "
           "texts)\n"
           "  warnings  array of: warning (a name from above), kind, place, name, text, rule (file, line, text)\n"
           "  failure   null, or why the rules ended early, as they would in the server\n"
           "  unwritable\n"
           "            null, or why \"kxmap apply\" could not write the file after these changes\n"
           "\n"
           "Examples:\n"
           "  kxmap try image.dcm --aet CT1\n"
           "  kxmap try scans/ --aet CT1 --mappings new/mappings --format=json | jq .warnings\n"
           "\n"
           "Exit codes: 0 nothing wrong; 1 warnings that are not switched off, dropped rules, a failed rule or a file\n"
           "that could not be written; 2 a file could not be read, no rules, or usage error.";
}

} // namespace

void addTry(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand("try", "Show what an AE title's rules would change in DICOM files");
    const auto options = std::make_shared<TryOptions>();
    addRuleOptions(*command, options->rules);
    addUserFieldOption(*command, options->userFields);
    command->add_flag("--trace", options->showsTrace, "Show every rule with its value, what it did and what it said");
    command->add_option("--format", options->format, "How to print: text or json")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "json"}).description(""));
    addSwitchOptions(*command, options->warnings, options->listsWarnings,
                     "-Wno-NAME switches a warning off, -WNAME on again; -Wno-all and -Wall every one of them");
    addColorOption(*command, options->color);
    command->add_flag("--skip-foreign", options->skipsForeign, kSkipForeignHelp);
    command->add_option("IN", options->inputs, "DICOM files, and folders with all files below them")->type_name("");
    command->footer(footer());
    command->callback([=, &exitCode] {
        if (options->listsWarnings) return listConsequences();
        if (options->inputs.empty()) throw CLI::RequiredError("IN");
        requireRuleChoice(options->rules);
        exitCode = runTry(*options);
    });
}

} // namespace kxtool
