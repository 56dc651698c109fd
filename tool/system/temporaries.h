// SPDX-License-Identifier: BSD-3-Clause
// Temporary files beside what they are to replace: their names, their removal by ending signals, and those that killed runs
// have left.
#pragma once

#include "tool/system/descriptor.h"

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <set>
#include <string_view>
#include <vector>

namespace kxtool {

/// How the names of temporary files begin; files with such names are no inputs.
constexpr std::string_view kTemporaryPrefix = ".kxmap-";

/// How many temporary files a process may have at once.
constexpr std::size_t kMaxTemporaries = 64;

/// One temporary file. It is removed with this object, and when an ending signal ends the process. Only the process's user
/// may open it. It is locked while it is open: one without a lock was left by a killed run.
class Temporary {
public:
    /// @param target the file in whose folder it is made. @throws FileError
    explicit Temporary(const std::filesystem::path& target);
    ~Temporary();
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    int descriptor() const { return descriptor_.get(); }
    const std::filesystem::path& path() const { return path_; }

    /// Gives it the target's name. @return 0, or the system's error number: both are then as they were.
    int renameTo(const std::filesystem::path& target);

private:
    std::filesystem::path path_; // empty once it is gone
    std::size_t slot_ = 0;       // among those that the signal handler knows
    Descriptor descriptor_;

    bool openLocked();
};

/// Removes what a process that has ended, forked from this one, has left beside these targets.
void removeTemporariesOf(pid_t process, const std::set<std::filesystem::path>& targets);

/// @return the temporary files in a folder that no process holds: those of killed runs. None where it cannot be read.
std::vector<std::filesystem::path> leftoversIn(const std::filesystem::path& folder);

/// Removes such a file, unless a process holds it by now. @return 0, or the system's error number.
int removeLeftover(const std::filesystem::path& file);

} // namespace kxtool
