// SPDX-License-Identifier: BSD-3-Clause
// Writing a file so that whoever opens it, at any moment and after any interruption, finds the whole old one or the
// whole new one.
#pragma once

#include "tool/system/belongings.h"
#include "tool/system/sink.h"
#include "tool/system/temporaries.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace kxtool {

/// The content to be of one file, written to a temporary file beside it. It takes the target's place by commit(); until
/// then, and for good when commit() is never called, the target is as it was.
class Replacement : public Sink {
public:
    /// Creates the temporary file. An existing target lends its owner, permissions, access control list and extended
    /// attributes. Where the target is a symbolic link, the file that it names is replaced.
    /// @throws FileError when it cannot be created, or the target is there and no writable regular file.
    /// @param source the file that the content comes from: it lends a new target its permissions, less the umask.
    explicit Replacement(const std::filesystem::path& target, const std::filesystem::path& source = {});

    int write(const void* bytes, std::size_t count) override;
    int copy(int source, off_t begin, std::uintmax_t count) override;
    std::uintmax_t size() const override { return size_; }

    /// @return the file that is replaced, links resolved.
    const std::filesystem::path& target() const override { return target_; }

    /// @return what of the target's belongings the new file cannot have, in words.
    const std::vector<std::string>& lost() const { return lost_; }

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

    /// Puts the temporary file in the target's place, and only now opens it to those who may read the target.
    /// @throws FileError, and the target is as it was.
    void commit();

    /// @return the folder of the target, links resolved: to be synchronised after commit(), for the name to last.
    std::filesystem::path folder() const;

private:
    Belongings belongingsOf(const std::filesystem::path& source);
    int reasonOfClosing() const;

    std::filesystem::path target_; // links resolved
    std::uintmax_t otherNames_ = 0;
    Belongings belongings_;
    Temporary temporary_;
    std::vector<std::string> lost_;
    std::uintmax_t size_ = 0;
};

/// Waits until the names in folders are on the disk. @throws FileError
void syncFolders(const std::set<std::filesystem::path>& folders);

} // namespace kxtool
