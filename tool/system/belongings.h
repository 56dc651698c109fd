// SPDX-License-Identifier: BSD-3-Clause
// What belongs to a file beside its content: owner, permissions, access control list, extended attributes.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

struct __acl_ext;

namespace kxtool {

/// For a new file that is to replace another, or that is new. Set-user-ID, set-group-ID and sticky bits are never kept.
class Belongings {
public:
    /// Those of a file that is there.
    /// @throws FileError when they cannot be read.
    Belongings(const std::filesystem::path& file, const struct stat& status);

    /// Those of a new file in a folder, as the system gives them: less the umask, or as the folder's default access
    /// control list has it.
    /// @param mode permissions that are wanted.
    static Belongings ofNew(const std::filesystem::path& folder, mode_t mode);

    /// Gives a file that only its user may open its owner, group and extended attributes. The access stays.
    /// @return what cannot be kept, in words; empty when all is.
    std::vector<std::string> copyOwnerAndAttributes(int descriptor);

    /// Sets permissions and access control list. Where the group could not be kept, group and others both get only what
    /// both had, so that nobody gains access.
    /// @return 0, or the system's error number; the file is then open to its owner at most.
    int setAccess(int descriptor) const;

private:
    struct FreeAcl {
        void operator()(__acl_ext* list) const;
    };
    using Acl = std::unique_ptr<__acl_ext, FreeAcl>;

    Belongings() = default;
    void giveOwner(int descriptor, std::vector<std::string>& lost);
    void giveAttributes(int descriptor, std::vector<std::string>& lost) const;

    bool isOfOld_ = false;
    std::filesystem::path source_;
    struct stat status_ = {};
    mode_t mode_ = 0;
    Acl acl_; // null where the permissions are all there is
};

} // namespace kxtool
