// SPDX-License-Identifier: BSD-3-Clause
// Writing a file so that whoever opens it, at any moment and after any interruption, finds the whole old one or the
// whole new one.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string_view>

namespace kxtool {

/// How the names of temporary files begin; a walk through folders passes over what a killed run has left of them.
constexpr std::string_view kTemporaryPrefix = ".kxmap-";

/// Removes what a process that has ended, forked from this one, has left of replacements of these targets.
void removeTemporariesOf(pid_t process, const std::set<std::filesystem::path>& targets);

/// How many replacements may be under way at once in a process.
constexpr std::size_t kMaxReplacements = 64;

/// The content to be of one file, written to a temporary file beside it. It takes the target's place by commit(); until
/// then, and for good when commit() is never called, the target is as it was. The temporary file goes with this object
/// and when SIGINT, SIGTERM or SIGHUP ends the process.
class Replacement {
public:
    /// Creates the temporary file. An existing target lends its owner, group and permissions; where the system does not
    /// allow the group, others lose what they had beyond it and the group what it had beyond others, so that nobody gains
    /// access. Where the target is a symbolic link, the file that it names is replaced.
    /// @throws FileError when it cannot be created, or the target is there and no writable regular file.
    /// @param source the file that the content comes from: it lends a new target its permissions, less the umask.
    explicit Replacement(const std::filesystem::path& target, const std::filesystem::path& source = {});
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// Adds to the content.
    /// @return 0, or the system's error number; the content is then of no use.
    int write(const void* bytes, std::size_t count);

    /// @return how many bytes were written.
    std::uintmax_t size() const { return size_; }

    /// @return how many other names (hard links) the target has: those keep the old content.
    std::uintmax_t otherNames() const { return otherNames_; }

    /// @return what hasReplaced() knows this content by.
    std::uint64_t mark() const;

    /// @return whether the replacement with that mark was committed, by whichever process, and is still there.
    static bool hasReplaced(const std::filesystem::path& target, std::uint64_t mark);

    /// Has the system begin to bring the content to the disk, and does not wait.
    void beginSync();

    /// Waits until the content is on the disk. @throws FileError
    void sync();

    /// Waits until all that was written to the content's file system is on the disk, by whomever. For many replacements
    /// this is faster by far: the disk empties its cache once, not once for each.
    /// @return whether it is; if not, sync() knows more.
    bool syncFileSystem();

    /// @return the file system of the content.
    dev_t device() const;

    /// Puts the temporary file in the target's place.
    /// @throws FileError, and the target is as it was.
    void commit();

    /// @return the file that is replaced, links resolved.
    const std::filesystem::path& target() const { return target_; }

    /// @return the folder of the target, links resolved: to be synchronised after commit(), for the name to last.
    std::filesystem::path folder() const;

private:
    void createTemporary();
    void adoptAttributes(const struct stat& target);

    std::filesystem::path target_;    // links resolved
    std::filesystem::path temporary_; // empty once it is gone
    std::size_t slot_ = 0;            // among those that the signal handler knows
    std::uintmax_t size_ = 0;
    std::uintmax_t otherNames_ = 0;
    int descriptor_ = -1;
};

/// Waits until the names in folders are on the disk. @throws FileError
void syncFolders(const std::set<std::filesystem::path>& folders);

} // namespace kxtool
