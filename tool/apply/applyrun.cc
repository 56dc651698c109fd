// SPDX-License-Identifier: BSD-3-Clause
// This process finds the files and reports the outcomes. Workers, forked after dictionary and rules are loaded, process the
// files.
#include "tool/apply/applyrun.h"

#include "tool/console/exitcodes.h"
#include "tool/console/output.h"
#include "tool/console/progress.h"
#include "tool/dicom/inputs.h"
#include "tool/record/reach.h"
#include "tool/record/report.h"
#include "tool/rules/ruleoptions.h"
#include "tool/system/interruption.h"
#include "tool/system/reportfile.h"
#include "tool/system/workers.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <set>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <utility>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

/// One run and its state.
class Run {
public:
    explicit Run(const ApplyOptions& options) : options_(options)
    {
        ruleFiles_ = readChosenRules(options.rules, droppedLines_);
        if (ruleFiles_.empty()) throw std::runtime_error(whyNoRules(options.rules));
        for (const RuleFile& file : ruleFiles_) rulesInOrder_.push_back(&file);
        extent_ = extentOf(rulesInOrder_);
        if (options.files.keepsOriginals) warnOfKeptIdentity();
        if (!options.files.needsRecording()) rules_.emplace(ruleFiles_);
    }

    int perform()
    {
        findInputs();
        if (inputs_.empty() && failures_ == 0) {
            reportError("there is no file to work on");
            return kUnusable;
        }
        planTasks();
        interruption_.emplace();
        progress_.emplace(progressStyle(), tasks_.size(), [this](std::string_view bytes) { write(bytes); });
        for (const std::string& line : earlyLines_) addToReport(line);
        WorkerPool pool(tasks_.size(), options_.workers, *interruption_, callbacks());
        pool.run();
        if (const int signalNumber = interruption_->readSignals(); signalNumber != 0) endBySignal(signalNumber, pool);
        return sumUp(pool);
    }

private:
    // The sequence would still hold the name that the outbound rules remove.
    void warnOfKeptIdentity() const
    {
        const bool isSent = options_.rules.isOutbound || options_.rules.singleFile.ends_with(".out.map");
        const std::vector<std::string> names = patientAttributesIn(rulesInOrder_);
        if (isSent && !names.empty())
            reportWarning(
                fmt::format("--original-attributes keeps in each result what the outbound rules replace or remove: {}",
                            fmt::join(names, ", ")));
    }

    void findInputs()
    {
        const auto onFailure = [this](const fs::path& name, const FileError& error) {
            reportError(error.what());
            ++failures_;
            if (options_.files.reports)
                earlyLines_.push_back(jsonLine({name, {}, "failed", error.what()}, nullptr, nullptr));
        };
        const Selection selection = {options_.output, options_.skipsForeign};
        inputs_ = collectInputs(options_.inputs, selection, onFailure);
        if (!options_.list.empty()) {
            auto listed = collectListed(readNames(options_.list), selection, onFailure);
            std::ranges::move(listed, std::back_inserter(inputs_));
        }
        const fs::path report = options_.report;
        std::error_code failure;
        const auto left = std::erase_if(inputs_, [&](const Input& input) {
            return (input.isLink || input.file.filename() == report.filename()) && options_.files.reports &&
                   fs::equivalent(input.file, report, failure) && ReportFile::isReport(report);
        });
        if (left > 0) reportNote(fmt::format("{}: passed over, an older report", printable(options_.report)));
    }

    void planTasks()
    {
        std::error_code failure;
        const bool needsFolder =
            !options_.list.empty() || options_.inputs.size() > 1 || fs::is_directory(options_.inputs.front(), failure);
        OutputPlan plan(options_.isInPlace ? fs::path() : fs::path(options_.output), needsFolder, inputs_);
        tasks_.reserve(inputs_.size());
        for (std::size_t index = 0; index < inputs_.size(); ++index) {
            FileTask task = {&inputs_[index], {}, {}};
            try {
                const auto place = plan.placeOf(index);
                if (!place) continue;
                task.place = *place;
            } catch (const FileError& error) {
                task.error = error.what();
            }
            tasks_.push_back(std::move(task));
        }
        if (options_.files.reports) {
            if (plan.isTaken(options_.report))
                throw FileError(options_.report, "cannot be the report: a file to work on or a result has this name");
            report_.emplace(options_.report);
        }
        if (!options_.files.isDryRun) makeFolders(plan);
        dealWithLeftovers();
    }

    // They hold patients' data, and nothing else removes them.
    void dealWithLeftovers() const
    {
        std::set<fs::path> folders;
        for (const FileTask& task : tasks_) {
            folders.insert(task.input->file.parent_path());
            folders.insert(task.place.parent_path());
        }
        for (const fs::path& folder : folders) {
            const std::vector<fs::path> left = leftoversIn(folder);
            if (left.empty()) continue;
            if (options_.cleans && !options_.files.isDryRun) clean(left);
            else
                reportWarning(fmt::format("{}: {} of a killed run may hold patients' data; --clean removes {}",
                                          printable(left.front().native()),
                                          left.size() == 1
                                              ? "this temporary file"
                                              : fmt::format("this and {} more temporary files", left.size() - 1),
                                          left.size() == 1 ? "it" : "them"));
        }
    }

    static void clean(const std::vector<fs::path>& left)
    {
        for (const fs::path& file : left) {
            const int reason = removeLeftover(file);
            if (reason != 0) reportError(FileError(file, systemReason(reason)).what());
            else reportNote(fmt::format("{}: removed, of a killed run", printable(file.native())));
        }
    }

    void makeFolders(OutputPlan& plan)
    {
        std::set<fs::path> parents; // of new folders
        for (FileTask& task : tasks_) {
            if (!task.error.empty()) continue;
            try {
                for (const fs::path& folder : plan.makeFolders(task.place))
                    parents.insert(folder.has_parent_path() ? folder.parent_path() : ".");
            } catch (const FileError& error) {
                task.error = error.what();
            }
        }
        if (options_.files.isDurable) syncFolders(parents);
    }

    Progress::Style progressStyle() const
    {
        const Progress::Style style = Progress::styleOfStandardError();
        if (options_.showsProgress) return *options_.showsProgress ? style : Progress::Style::None;
        return style == Progress::Style::Bar || verbosity() != Verbosity::Quiet ? style : Progress::Style::None;
    }

    WorkerPool::Callbacks callbacks()
    {
        return {
            [this](TaskQueue& queue) {
                const LoadedRules rules{rules_ ? &*rules_ : nullptr, rulesInOrder_, extent_};
                FileWorker(options_.files, rules, tasks_, queue).run();
            },
            [this](std::size_t task, std::uint64_t mark) { return Replacement::hasReplaced(tasks_[task].place, mark); },
            [this](pid_t process, const std::vector<std::size_t>& tasks) {
                std::set<fs::path> targets;
                for (const std::size_t task : tasks) targets.insert(tasks_[task].place);
                removeTemporariesOf(process, targets);
            },
            [this](std::size_t task, const std::string& how) { return lost(task, how); },
            [this](std::size_t task, const Outcome& outcome) { show(task, outcome); },
            [this](std::size_t done, std::size_t failed) { progress_->update(done, failed); },
            [this](const std::string& lines) { say(lines); }};
    }

    Outcome lost(std::size_t task, const std::string& how) const
    {
        const fs::path& file = tasks_[task].input->file;
        const std::string error =
            FileError(file, fmt::format("three processes that worked on it died, the last of: {}", how)).what();
        Outcome outcome = {false, fmt::format("kxmap: {}\n", error), {}, {}};
        if (report_) outcome.report = jsonLine({file, tasks_[task].place, "failed", error}, nullptr, nullptr);
        return outcome;
    }

    void show(std::size_t task, const Outcome& outcome)
    {
        if (!outcome.output.empty() && outputFailure_ == 0) {
            progress_->clear();
            outputFailure_ = interruption_->write(STDOUT_FILENO, outcome.output);
            // A dry run without readers can end; files that are to be changed are still changed.
            if (outputFailure_ == EPIPE && options_.files.isDryRun && !report_) interruption_->end(SIGPIPE);
        }
        say(outcome.errors);
        if (!outcome.isGood && outcome.errors.empty()) // a worker keeps its messages in a file in memory
            say(fmt::format("kxmap: {}: failed; the reason could not be stored (see \"ulimit -f\")\n",
                            printable(tasks_[task].input->file.native())));
        if (!outcome.report.empty()) addToReport(outcome.report);
    }

    void addToReport(const std::string& line)
    {
        if (report_ && !report_->add(line, *interruption_)) say(fmt::format("kxmap: {}\n", report_->failure()));
    }

    void say(const std::string& lines)
    {
        if (lines.empty()) return;
        progress_->clear();
        write(lines);
    }

    void write(std::string_view bytes)
    {
        std::ignore = interruption_->write(STDERR_FILENO, bytes); // a failure cannot be reported anywhere
    }

    std::string stateOf(const WorkerPool& pool) const
    {
        return fmt::format("{} of {} files done ({} failed)", pool.done(), tasks_.size(), pool.failed());
    }

    [[noreturn]] void endBySignal(int signalNumber, const WorkerPool& pool)
    {
        if (signalNumber != SIGPIPE)
            say(fmt::format("kxmap: interrupted: {}, the others are as they were\n", stateOf(pool)));
        progress_.reset();
        Interruption::endBySignal(signalNumber);
    }

    int sumUp(const WorkerPool& pool)
    {
        progress_->finish(pool.done(), pool.failed());
        if (outputFailure_ != 0) say(fmt::format("kxmap: standard output: {}\n", systemReason(outputFailure_)));
        if (!pool.failure().empty()) say(fmt::format("kxmap: {}\n", pool.failure()));
        if (outputFailure_ != 0 || !pool.failure().empty() || (report_ && !report_->failure().empty())) {
            say(fmt::format("kxmap: {}\n", stateOf(pool)));
            return kUnusable;
        }
        const std::size_t failed = failures_ + pool.failed();
        if (verbosity() != Verbosity::Quiet)
            say(fmt::format("kxmap: {} failed, {} files found\n", failed, inputs_.size()));
        return failed == 0 && droppedLines_ == 0 ? kAllGood : kShortcoming;
    }

    const ApplyOptions& options_;
    std::optional<Rules> rules_; // none when they are applied one by one
    std::vector<RuleFile> ruleFiles_;
    RulesInOrder rulesInOrder_;
    DicomFile::Extent extent_ = DicomFile::Extent::Whole;
    std::size_t droppedLines_ = 0; // of the mapping files; said already
    std::vector<Input> inputs_;
    std::vector<FileTask> tasks_;
    std::size_t failures_ = 0;            // of inputs that could not be read
    std::vector<std::string> earlyLines_; // of the report, on these
    std::optional<ReportFile> report_;
    std::optional<Interruption> interruption_;
    std::optional<Progress> progress_;
    int outputFailure_ = 0; // the system's reason
};

} // namespace

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

} // namespace kxtool
