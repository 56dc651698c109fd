// SPDX-License-Identifier: BSD-3-Clause
// The file that "kxmap apply --report" writes.
#pragma once

#include "tool/system/descriptor.h"
#include "tool/system/interruption.h"

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace kxtool {

/// One line for each input. It has whole lines only, and ends where one cannot be written; only SIGKILL or a stop of the
/// machine can leave its last line incomplete.
class ReportFile {
public:
    /// @return whether a file is empty or begins as a line of a report does: with the members of jsonLine(), in their
    ///         order. Not when it cannot be read.
    static bool isReport(const std::filesystem::path& file);

    /// Overwrites nothing but an older report, so that a mistyped command line destroys no image and no mapping. A new one
    /// is readable by its owner alone, since it holds patients' data; an older one keeps its mode. Pipes, terminals and
    /// character devices are written to line by line.
    /// @throws FileError for any other file, and for a pipe without a reader.
    explicit ReportFile(const std::filesystem::path& file);

    /// Adds a line, unless an earlier one could not be written.
    /// @return whether it is there, or an earlier failure is known already.
    bool add(const std::string& line, Interruption& interruption);

    /// @return empty, or why lines are missing.
    const std::string& failure() const { return failure_; }

private:
    std::filesystem::path file_;
    Descriptor descriptor_;
    off_t size_ = 0; // of whole lines
    std::string failure_;
};

} // namespace kxtool
