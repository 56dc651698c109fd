// SPDX-License-Identifier: BSD-3-Clause
// kxmap apply: the rules of an AE title, applied to files. This process finds the files and says what became of them;
// the work is done by workers that are forked when dictionary and rules are loaded.
#include "tool/applyworker.h"
#include "tool/commands.h"
#include "tool/exitcodes.h"
#include "tool/inputs.h"
#include "tool/output.h"
#include "tool/progress.h"
#include "tool/report.h"
#include "tool/ruleoptions.h"
#include "tool/workers.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

struct ApplyOptions {
    RuleChoice rules;
    FileOptions files;
    std::string output;
    bool isInPlace = false;
    std::vector<std::string> inputs;
    std::string list;   // of more inputs
    std::string report; // a file
    unsigned workers = 1;
    std::optional<bool> showsProgress; // none: on a terminal, and with --verbose
};

/// The file that a line goes to for each input. It is complete at every moment: a line is one write.
class ReportFile {
public:
    /// Takes the place of an older report only, so that a slip on the command line costs no image and no mapping.
    explicit ReportFile(const std::string& file)
        : file_(file), descriptor_(open(file.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666))
    {
        if (descriptor_ < 0) throw FileError(file_, systemReason(errno));
        char first = '{';
        if (pread(descriptor_, &first, 1, 0) > 0 && first != '{') {
            close(descriptor_);
            throw FileError(file_, "is there, and no report: it is not overwritten");
        }
        std::ignore = ftruncate(descriptor_, 0); // a pipe or a device cannot, and need not
    }
    ~ReportFile() { close(descriptor_); }
    ReportFile(const ReportFile&) = delete;
    ReportFile& operator=(const ReportFile&) = delete;

    void add(const std::string& line)
    {
        const std::string bytes = line + '\n';
        const ssize_t written = write(descriptor_, bytes.data(), bytes.size());
        if (written == static_cast<ssize_t>(bytes.size())) return;
        throw FileError(file_, written < 0 ? systemReason(errno) : systemReason(ENOSPC));
    }

private:
    fs::path file_;
    int descriptor_;
};

/// All that one run knows.
class Run {
public:
    explicit Run(const ApplyOptions& options) : options_(options), rules_(options.rules)
    {
        std::size_t lost = 0; // said already
        ruleFiles_ = readChosenRules(options.rules, lost);
        for (const RuleFile& file : ruleFiles_) rulesInOrder_.push_back(&file);
        if (!options.report.empty()) report_.emplace(options.report);
    }

    int perform()
    {
        findInputs();
        planTasks();
        progress_.emplace(progressStyle(), tasks_.size());
        const LoadedRules rules{rules_, rulesInOrder_};
        WorkerPool pool(tasks_.size(), options_.workers,
                        {[&](TaskQueue& queue) { FileWorker(options_.files, rules, tasks_, queue).run(); },
                         [&](std::size_t task, const std::string& how) { return lost(task, how); },
                         [&](std::size_t, const Outcome& outcome) { show(outcome); },
                         [&](std::size_t done, std::size_t failed) { progress_->update(done, failed); }});
        const int signalNumber = pool.run();
        progress_->finish(pool.done(), pool.failed());
        if (signalNumber != 0) endBySignal(signalNumber, pool);
        const std::size_t failed = failures_ + pool.failed();
        reportNote(fmt::format("{} failed, {} files found", failed, inputs_.size()));
        return failed == 0 ? kAllGood : kShortcoming;
    }

private:
    void findInputs()
    {
        const auto onFailure = [this](const FileError& error) {
            reportError(error.what());
            ++failures_;
            if (report_) report_->add(jsonLine({{}, {}, "failed", error.what(), 0}, nullptr, nullptr));
        };
        inputs_ = collectInputs(options_.inputs, options_.output, onFailure);
        if (options_.list.empty()) return;
        auto listed = collectListed(readNames(options_.list), options_.output, onFailure);
        std::ranges::move(listed, std::back_inserter(inputs_));
    }

    void planTasks()
    {
        std::error_code failure;
        const bool needsFolder =
            !options_.list.empty() || options_.inputs.size() > 1 || fs::is_directory(options_.inputs.front(), failure);
        OutputPlan plan(options_.isInPlace ? fs::path() : fs::path(options_.output), needsFolder, inputs_);
        std::set<fs::path> parents; // of new folders
        tasks_.reserve(inputs_.size());
        for (std::size_t index = 0; index < inputs_.size(); ++index) {
            FileTask task = {&inputs_[index], {}, {}};
            try {
                const auto place = plan.placeOf(index);
                if (!place) continue;
                task.place = *place;
                const auto made = options_.files.isDryRun ? std::vector<fs::path>() : plan.makeFolders(*place);
                for (const fs::path& folder : made)
                    parents.insert(folder.has_parent_path() ? folder.parent_path() : ".");
            } catch (const FileError& error) {
                task.error = error.what();
            }
            tasks_.push_back(std::move(task));
        }
        if (options_.files.isDurable) syncFolders(parents);
    }

    Progress::Style progressStyle() const
    {
        const Progress::Style style = Progress::styleOfStandardError();
        if (options_.showsProgress) return *options_.showsProgress ? style : Progress::Style::None;
        return style == Progress::Style::Bar || verbosity() != Verbosity::Quiet ? style : Progress::Style::None;
    }

    Outcome lost(std::size_t task, const std::string& how) const
    {
        const fs::path& file = tasks_[task].input->file;
        const std::string error = fmt::format(
            "{}: the process that worked on it died: {}; its result is whole or not there", file.native(), how);
        Outcome outcome = {false, fmt::format("kxmap: {}\n", error), {}, {}};
        if (report_) outcome.report = jsonLine({file, tasks_[task].place, "failed", error, 0}, nullptr, nullptr);
        return outcome;
    }

    void show(const Outcome& outcome)
    {
        if (!outcome.errors.empty() || !outcome.output.empty()) progress_->clear();
        std::fwrite(outcome.output.data(), 1, outcome.output.size(), stdout);
        if (!outcome.errors.empty()) {
            std::fflush(stdout);
            std::fwrite(outcome.errors.data(), 1, outcome.errors.size(), stderr);
        }
        if (report_ && !outcome.report.empty()) report_->add(outcome.report);
    }

    [[noreturn]] void endBySignal(int signalNumber, const WorkerPool& pool) const
    {
        reportError(
            fmt::format("interrupted: {} of {} files done, the others are as they were", pool.done(), tasks_.size()));
        std::fflush(stdout);
        std::signal(signalNumber, SIG_DFL);
        raise(signalNumber);
        _exit(kUnusable); // not reached
    }

    const ApplyOptions& options_;
    const Rules rules_;
    std::vector<RuleFile> ruleFiles_;
    RulesInOrder rulesInOrder_;
    std::optional<ReportFile> report_;
    std::optional<Progress> progress_;
    std::vector<Input> inputs_;
    std::vector<FileTask> tasks_;
    std::size_t failures_ = 0; // of inputs that could not be read
};

int runApply(ApplyOptions& options)
{
    if (options.workers == 0) options.workers = std::max(1U, std::thread::hardware_concurrency());
    FileOptions& files = options.files;
    files.reports = !options.report.empty();
    if (files.notes.system.empty()) files.notes.system = thisSystem();
    if (files.notes.source.empty() && !options.rules.isOutbound) {
        const std::string& sender = options.rules.aeTitle;
        if (whyNoLongString(sender).empty()) files.notes.source = sender;
    }
    try {
        requireDictionary();
        return Run(options).perform();
    } catch (const std::exception& error) { // no rules, no place for the results
        reportError(error.what());
        return kUnusable;
    }
}

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
    "Exit codes: 0 all files done, 1 some failed, 2 usage error or no rules.";

void requireInputsAndOutput(const ApplyOptions& options)
{
    requireRuleChoice(options.rules);
    if (options.inputs.empty() && options.list.empty()) throw CLI::RequiredError("IN or --from-file");
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
    command->add_option("IN", options->inputs, "DICOM files, and folders with all files below them")->type_name("");
    command->footer(kFooter);
    command->callback([=, &exitCode] {
        requireInputsAndOutput(*options);
        exitCode = runApply(*options);
    });
}

} // namespace kxtool
