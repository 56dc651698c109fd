// SPDX-License-Identifier: BSD-3-Clause
// What "kxmap apply" does to each file, in a process of its own.
#pragma once

#include "tool/dicom/dicomfile.h"
#include "tool/dicom/inputs.h"
#include "tool/record/originalattributes.h"
#include "tool/record/recorder.h"
#include "tool/rules/rules.h"
#include "tool/system/replacement.h"
#include "tool/system/workers.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kxtool {

/// The command line, as far as single files are concerned.
struct FileOptions {
    std::vector<std::string> userFields; // NAME=TEXT
    bool printsUserFields = false;
    bool isDryRun = false;
    bool isDurable = false;
    bool reports = false;
    bool keepsOriginals = false;
    ModificationNotes notes;

    /// @return whether rules are to be applied one by one; all at once is faster.
    bool needsRecording() const { return isDryRun || reports || keepsOriginals; }
};

/// One file, and where its result goes.
struct FileTask {
    const Input* input;
    std::filesystem::path place;
    std::string error; ///< not empty: why nothing can be done
};

/// The rules, in the form that is needed.
struct LoadedRules {
    const Rules* asOne; ///< null when they are applied one by one
    const RulesInOrder& single;
    DicomFile::Extent extent; ///< what of a file they reach
};

/// A worker's part of a run.
class FileWorker {
public:
    FileWorker(const FileOptions& options, const LoadedRules& rules, const std::vector<FileTask>& tasks,
               TaskQueue& queue);
    ~FileWorker();

    /// Does tasks until there are no more.
    void run();

private:
    /// A file that is written, but is not yet in its place.
    struct Pending {
        std::size_t task = 0;
        Outcome outcome;
        std::optional<InputFile> input;           // what it was made from, still open
        std::unique_ptr<Replacement> replacement; // null for a dry run, and after a failure
    };

    bool isBatchComplete() const;
    void process(std::size_t task);
    void applyAndWrite(const FileTask& task, Pending& pending);
    void write(const FileTask& task, DicomFile& file, Pending& pending);
    void applyAtOnce(const FileTask& task, MappingSession& session, Pending& pending);
    void applySingly(const FileTask& task, MappingSession& session, Recording& recording) const;
    void finish();
    void syncAll();
    void requireInputsUnchanged();
    bool areFileSystemsSynced();
    void putInPlace(Pending& pending);
    void syncTargetFolders();
    void fail(Pending& pending, const std::string& error);

    const FileOptions& options_;
    const LoadedRules& rules_;
    const std::vector<FileTask>& tasks_;
    TaskQueue& queue_;
    std::vector<Pending> pending_;
    std::uintmax_t pendingBytes_ = 0;
    std::chrono::steady_clock::time_point batchBegin_; // of the first in pending_
};

} // namespace kxtool
