// SPDX-License-Identifier: BSD-3-Clause
// Writing a file so that whoever opens it, at any moment and after any interruption, finds the whole old one or the
// whole new one.
#pragma once

#include <cstdio>
#include <filesystem>
#include <string_view>

namespace kxtool {

/// How the names of temporary files begin; a walk through folders passes over what a killed run has left of them.
constexpr std::string_view kTemporaryPrefix = ".kxmap-";

/// The content to be of one file, written to a temporary file beside it. It takes the target's place by commit(); until
/// then, and for good when commit() is never called, the target is as it was. The temporary file goes with this object
/// and when SIGINT, SIGTERM or SIGHUP ends the process. One at a time in a process.
class Replacement {
public:
    /// Creates the temporary file. An existing target lends its permissions and, where the system allows it, its owner;
    /// where the target is a symbolic link, the file that it names is replaced.
    /// @throws FileError when it cannot be created, or the target is there and no writable regular file.
    explicit Replacement(const std::filesystem::path& target);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// @return a new stream that writes to the temporary file; the caller's to close. @throws FileError
    std::FILE* openStream();

    /// Puts the temporary file in the target's place. The streams have been closed before.
    /// @throws FileError, and the target is as it was.
    void commit();

private:
    void createTemporary();
    void adoptAttributes();

    std::filesystem::path target_;    // links resolved
    std::filesystem::path temporary_; // empty once it is gone
    int descriptor_ = -1;
};

} // namespace kxtool
