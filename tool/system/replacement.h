// SPDX-License-Identifier: BSD-3-Clause
// Writing a file so that at any moment, and after any interruption, it is wholly the old or wholly the new one.
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

/// New content for a file, written to a temporary file beside it. commit() puts it in the target's place; until then, and
/// when commit() is never called, the target is as it was.
class Replacement : public Sink {
public:
    /// Creates the temporary file. It gets owner, permissions, access control list and extended attributes of
    /// an existing target. Where the target is a symbolic link, the file that it names is replaced.
    /// @throws FileError when it cannot be created, or the target is there and no writable regular file.
    /// @param source the file that the content comes from: a new target gets its permissions, less the umask.
    explicit Replacement(const std::filesystem::path& target, const std::filesystem::path& source = {});

    int write(const void* bytes, std::size_t count) override;
    int copy(int source, off_t begin, std::uintmax_t count) override;
    std::uintmax_t size() const override { return size_; }

    /// @return the file that is replaced, links resolved.
    const std::filesystem::path& target() const override { return target_; }

    /// @return which of owner, permissions and attributes the new file cannot have, in words.
    const std::vector<std::string>& lost() const { return lost_; }

    /// @return how many other names (hard links) the target has: those keep the old content.
    std::uintmax_t otherNames() const { return otherNames_; }

    /// @return a number by which hasReplaced() recognises this content.
    std::uint64_t mark() const;

    /// @return whether the replacement with that mark was committed, by this or another process, and is still there.
    static bool hasReplaced(const std::filesystem::path& target, std::uint64_t mark);

    /// Starts writing the content to the disk, and does not wait.
    void beginSync();

    /// Waits until the content is on the disk. @throws FileError
    void sync();

    /// Waits until the whole file system of the content is on the disk. For many replacements this is much faster than
    /// sync(): the disk empties its cache once, not once for each.
    /// @return whether it succeeded; if not, sync() says which file failed.
    bool syncFileSystem();

    /// @return the file system of the content.
    dev_t device() const;

    /// Sets permissions and access control list, and puts the temporary file in the target's place.
    /// @throws FileError, and the target is as it was.
    void commit();

    /// @return the folder of the target, links resolved: to be synchronised after commit(), so that the name is on the disk.
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
