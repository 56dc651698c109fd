// SPDX-License-Identifier: BSD-3-Clause
// Results replace their files in batches. With --fsync a batch has many files, so that the disk writes them together;
// otherwise it has the files of a short time, since to wake the parent for each takes longer than a small file does. Until
// its batch is complete, a file is the old one.
#include "tool/apply/applyworker.h"

#include "tool/console/output.h"
#include "tool/dicom/dicomfile.h"
#include "tool/record/report.h"
#include "tool/rules/messagetap.h"
#include "tool/rules/ruleoptions.h"
#include "tool/system/sink.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <set>
#include <stdexcept>
#include <sys/resource.h>

namespace kxtool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kBatchTime(20);       // shorter steps of the progress cannot be seen
constexpr std::size_t kManyFiles = 4;                     // for as many, synchronising the file system is faster
constexpr std::uintmax_t kBatchBytes = 64U * 1024 * 1024; // until they are in place, results need disk space twice

// A result of a batch and its input stay open until the result is in its place.
std::size_t batchFiles()
{
    constexpr rlim_t kOtherDescriptors = 16;
    constexpr rlim_t kDescriptorsEach = 2; // the input's and the result's
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kMaxTemporaries;
    const rlim_t room = limit.rlim_cur > kOtherDescriptors ? limit.rlim_cur - kOtherDescriptors : 0;
    return std::clamp<std::size_t>(room / kDescriptorsEach, 1, kMaxTemporaries);
}

std::string userFieldLines(const std::filesystem::path& file, const KXCustomFields& fields)
{
    std::string lines;
    for (const auto& [name, text] : fields.fields())
        lines += fmt::format("{}\t{}\t{}\n", printable(file.native()), printable(name), printable(text));
    return lines;
}

} // namespace

FileWorker::FileWorker(const FileOptions& options, const LoadedRules& rules, const std::vector<FileTask>& tasks,
                       TaskQueue& queue)
    : options_(options), rules_(rules), tasks_(tasks), queue_(queue)
{
}

FileWorker::~FileWorker() = default;

void FileWorker::run()
{
    while (const auto task = queue_.next()) {
        const bool isAlone = queue_.isTriedAgain(*task);
        if (isAlone) finish();
        process(*task);
        if (isAlone || isBatchComplete()) finish();
    }
    finish();
}

bool FileWorker::isBatchComplete() const
{
    static const std::size_t most = batchFiles();
    if (pending_.size() >= most || pendingBytes_ >= kBatchBytes) return true;
    return !options_.isDurable && Clock::now() - batchBegin_ >= kBatchTime;
}

void FileWorker::process(std::size_t number)
{
    const FileTask& task = tasks_[number];
    if (pending_.empty()) batchBegin_ = Clock::now();
    Pending& pending = pending_.emplace_back();
    pending.task = number;
    try {
        if (!task.error.empty()) throw std::runtime_error(task.error);
        applyAndWrite(task, pending);
    } catch (const FileError& error) {
        return fail(pending, error.what());
    } catch (const std::exception& error) { // exhausted memory
        return fail(pending, task.error.empty() ? FileError(task.input->file, error.what()).what() : task.error);
    }
    pending.outcome.errors += queue_.takeErrors();
}

void FileWorker::applyAndWrite(const FileTask& task, Pending& pending)
{
    const auto begin = Clock::now();
    const std::filesystem::path& name = task.input->file;
    DicomFile file(name, rules_.extent);
    if (file.seemsCut())
        reportWarning(
            fmt::format("{}: it describes pixels and has none: perhaps it was cut short", printable(name.native())));
    MappingSession session;
    session.dataset = &file.dataset();
    setUserFields(options_.userFields, session.customFields);
    std::optional<Recording> recording;
    if (options_.needsRecording()) applySingly(task, session, recording.emplace());
    else applyAtOnce(task, session, pending);
    if (recording) warnOfDropped(name, file.settle()); // so that exactly what is written is shown
    if (options_.isDryRun) pending.outcome.output = changeLines(name, *recording, file.dataset());
    if (options_.printsUserFields) pending.outcome.output += userFieldLines(name, session.customFields);
    write(task, file, pending);
    const std::uintmax_t otherNames = pending.replacement ? pending.replacement->otherNames() : 0;
    if (otherNames > 0)
        reportWarning(fmt::format("{}: has {} more {} (hard links); the old content stays there",
                                  printable(task.place.native()), otherNames, otherNames == 1 ? "name" : "names"));
    if (verbosity() != Verbosity::Quiet && !options_.isDryRun)
        reportNote(fmt::format("{} -> {}", printable(name.native()), printable(task.place.native())));
    const std::chrono::duration<double, std::milli> spent = Clock::now() - begin;
    if (options_.reports)
        pending.outcome.report =
            jsonLine({name, task.place, options_.isDryRun ? "dry" : "done", {}, spent.count(), otherNames}, &*recording,
                     &file.dataset());
    pending.input = std::move(file).takeInput();
}

void FileWorker::write(const FileTask& task, DicomFile& file, Pending& pending)
{
    if (options_.isDryRun) {
        CountingSink sink(task.place);
        return warnOfDropped(task.input->file, file.writeTo(sink));
    }
    pending.replacement = std::make_unique<Replacement>(task.place, task.input->file);
    warnOfDropped(task.input->file, file.writeTo(*pending.replacement));
    pendingBytes_ += pending.replacement->size();
    if (options_.isDurable) pending.replacement->beginSync(); // goes on while the next files are processed
    if (const std::vector<std::string>& lost = pending.replacement->lost(); !lost.empty())
        reportWarning(fmt::format("{}: cannot keep its {}", printable(task.place.native()), fmt::join(lost, ", ")));
}

void FileWorker::applyAtOnce(const FileTask& task, MappingSession& session, Pending& pending)
{
    // With --debug the module's own lines have all messages and more.
    std::optional<LogTap> tap;
    if (verbosity() != Verbosity::Debug) tap.emplace();
    if (tap) pending.outcome.errors += queue_.takeErrors();
    std::string failure;
    try {
        rules_.asOne->apply(session);
    } catch (const std::logic_error& error) {
        failure = error.what();
    }
    const std::vector<std::string> messages = tap ? tap->take(queue_.takeErrors()) : std::vector<std::string>();
    tap.reset();
    for (const std::string& message : messages)
        reportWarning(fmt::format("{}: {}", printable(task.input->file.native()), printable(message)));
    if (!failure.empty()) throw FileError(task.input->file, failure);
}

void FileWorker::applySingly(const FileTask& task, MappingSession& session, Recording& recording) const
{
    recording.run(rules_.single, session);
    for (const Step& step : recording.steps()) {
        for (const std::string& message : step.messages)
            reportWarning(fmt::format("{}: {} ({})", printable(task.input->file.native()), printable(message),
                                      placeOfRule(step)));
    }
    if (!recording.failure().empty()) throw FileError(task.input->file, recording.failure());
    if (!options_.keepsOriginals) return;
    const std::string failure = addOriginalAttributes(*session.dataset, recording, options_.notes);
    if (!failure.empty()) throw FileError(task.input->file, failure);
}

void FileWorker::finish()
{
    if (options_.isDurable) syncAll();
    requireInputsUnchanged();
    {
        const SignalsHeld held; // a file that was replaced must also be reported
        for (const Pending& pending : pending_) {
            if (pending.replacement) queue_.prepare(pending.task, pending.outcome, pending.replacement->mark());
        }
        queue_.flush();
        for (Pending& pending : pending_) putInPlace(pending);
        if (options_.isDurable) syncTargetFolders();
        for (const Pending& pending : pending_) {
            if (pending.replacement) queue_.confirm(pending.task);
            else queue_.deliver(pending.task, pending.outcome);
        }
        queue_.flush();
    }
    pending_.clear();
    pendingBytes_ = 0;
}

void FileWorker::syncAll()
{
    if (pending_.size() >= kManyFiles && areFileSystemsSynced()) return;
    for (Pending& pending : pending_) {
        try {
            if (pending.replacement) pending.replacement->sync();
        } catch (const FileError& error) {
            fail(pending, error.what());
        }
    }
}

// All of them before the first result takes its place: an input may be another name of one that is replaced.
void FileWorker::requireInputsUnchanged()
{
    for (Pending& pending : pending_) {
        try {
            if (pending.input) pending.input->requireUnchanged();
        } catch (const FileError& error) {
            fail(pending, error.what());
        }
    }
}

bool FileWorker::areFileSystemsSynced()
{
    std::set<dev_t> synced;
    return std::ranges::all_of(pending_, [&synced](Pending& pending) {
        return !pending.replacement || !synced.insert(pending.replacement->device()).second ||
               pending.replacement->syncFileSystem();
    });
}

void FileWorker::putInPlace(Pending& pending)
{
    if (!pending.replacement) return;
    try {
        if (pending.input) pending.input->requireUnchanged(); // sending to the parent may have taken long
        pending.replacement->commit();
    } catch (const FileError& error) {
        fail(pending, error.what());
    }
}

void FileWorker::syncTargetFolders()
{
    std::set<std::filesystem::path> folders;
    for (const Pending& pending : pending_) {
        if (pending.replacement) folders.insert(pending.replacement->folder());
    }
    try {
        syncFolders(folders);
    } catch (const FileError& error) {
        for (Pending& pending : pending_) {
            if (!pending.replacement) continue;
            const std::string reason =
                fmt::format("in its place, but perhaps not yet on the disk: {}", printable(error.what()));
            fail(pending, FileError(pending.replacement->target(), reason).what());
        }
    }
}

void FileWorker::fail(Pending& pending, const std::string& error)
{
    const FileTask& task = tasks_[pending.task];
    reportError(error);
    pending.replacement.reset();
    pending.input.reset();
    pending.outcome.isGood = false;
    pending.outcome.output.clear();
    pending.outcome.errors += queue_.takeErrors();
    if (options_.reports)
        pending.outcome.report = jsonLine({task.input->file, task.place, "failed", error, 0}, nullptr, nullptr);
}

} // namespace kxtool
