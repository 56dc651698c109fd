// SPDX-License-Identifier: BSD-3-Clause
// libacl and libattr know which attributes may be copied.
#include "tool/system/belongings.h"

#include "tool/console/output.h"
#include "tool/system/descriptor.h"

#include <acl/libacl.h>
#include <attr/error_context.h>
#include <attr/libattr.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/acl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace kxtool {
namespace {

constexpr mode_t kPermissions = 0777;
constexpr const char* kNetworkAcl =
    "system.nfs4_acl"; // made by the server from owner and mode, as far as these can express it

bool isUnsupported(int reason)
{
    return reason == EOPNOTSUPP || reason == ENOSYS;
}

// The access control list is set later; capabilities are never copied.
int isCopied(const char* name, error_context*)
{
    const std::string_view attribute = name;
    return attribute.starts_with("user.") || attribute.starts_with("trusted.") ? 1 : 0;
}

// libattr reports through this; the reason is errno's.
void say(error_context*, const char*, ...) {}
const char* quote(error_context*, const char* text)
{
    return text;
}
void freeQuoted(error_context*, const char*) {}

mode_t umaskOfProcess()
{
    static const mode_t mask = [] {
        const mode_t was = umask(0);
        umask(was);
        return was;
    }();
    return mask;
}

void limit(acl_t list, acl_tag_t tag, mode_t bits)
{
    acl_entry_t entry = nullptr;
    for (int which = ACL_FIRST_ENTRY; acl_get_entry(list, which, &entry) == 1; which = ACL_NEXT_ENTRY) {
        acl_tag_t its = ACL_UNDEFINED_TAG;
        acl_permset_t permissions = nullptr;
        if (acl_get_tag_type(entry, &its) != 0 || its != tag || acl_get_permset(entry, &permissions) != 0) continue;
        if ((bits & 4) == 0) acl_delete_perm(permissions, ACL_READ);
        if ((bits & 2) == 0) acl_delete_perm(permissions, ACL_WRITE);
        if ((bits & 1) == 0) acl_delete_perm(permissions, ACL_EXECUTE);
    }
}

bool hasTag(acl_t list, acl_tag_t tag)
{
    acl_entry_t entry = nullptr;
    for (int which = ACL_FIRST_ENTRY; acl_get_entry(list, which, &entry) == 1; which = ACL_NEXT_ENTRY) {
        acl_tag_t its = ACL_UNDEFINED_TAG;
        if (acl_get_tag_type(entry, &its) == 0 && its == tag) return true;
    }
    return false;
}

} // namespace

void Belongings::FreeAcl::operator()(__acl_ext* list) const
{
    acl_free(list);
}

Belongings::Belongings(const std::filesystem::path& file, const struct stat& status)
    : isOfOld_(true), source_(file), status_(status), mode_(status.st_mode & kPermissions)
{
    const int isExtended = acl_extended_file(file.c_str());
    if (isExtended < 0 && !isUnsupported(errno)) throw FileError(file, systemReason(errno));
    if (isExtended <= 0) return;
    acl_.reset(acl_get_file(file.c_str(), ACL_TYPE_ACCESS));
    if (!acl_) throw FileError(file, systemReason(errno));
}

// POSIX 1003.1e draft 17, 23.3.2: a default list takes the umask's place, and the mode that a file is made with limits it.
Belongings Belongings::ofNew(const std::filesystem::path& folder, mode_t mode)
{
    Belongings result;
    result.acl_.reset(acl_get_file(folder.c_str(), ACL_TYPE_DEFAULT));
    if (!result.acl_ && !isUnsupported(errno)) throw FileError(folder, systemReason(errno));
    if (!result.acl_ || acl_entries(result.acl_.get()) == 0) {
        result.acl_.reset();
        result.mode_ = mode & kPermissions & ~umaskOfProcess();
        return result;
    }
    limit(result.acl_.get(), ACL_USER_OBJ, mode >> 6 & 7);
    limit(result.acl_.get(), hasTag(result.acl_.get(), ACL_MASK) ? ACL_MASK : ACL_GROUP_OBJ, mode >> 3 & 7);
    limit(result.acl_.get(), ACL_OTHER, mode & 7);
    return result;
}

std::vector<std::string> Belongings::copyOwnerAndAttributes(int descriptor)
{
    std::vector<std::string> lost;
    if (!isOfOld_) return lost;
    giveOwner(descriptor, lost);
    giveAttributes(descriptor, lost);
    return lost;
}

void Belongings::giveAttributes(int descriptor, std::vector<std::string>& lost) const
{
    const ssize_t bytes = listxattr(source_.c_str(), nullptr, 0);
    if (bytes == 0 || (bytes < 0 && isUnsupported(errno))) return;
    const Descriptor source(bytes < 0 ? -1 : open(source_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    error_context context = {say, quote, freeQuoted};
    if (!source.isOpen() ||
        attr_copy_fd(source_.c_str(), source.get(), source_.c_str(), descriptor, isCopied, &context) != 0)
        lost.push_back(fmt::format("extended attributes ({})", systemReason(errno)));
    if (bytes > 0 && fgetxattr(source.get(), kNetworkAcl, nullptr, 0) > 0)
        lost.push_back("access control list (one of NFS version 4)");
}

void Belongings::giveOwner(int descriptor, std::vector<std::string>& lost)
{
    struct stat now = {};
    if (fstat(descriptor, &now) == 0 && now.st_uid == status_.st_uid && now.st_gid == status_.st_gid) return;
    if (fchown(descriptor, status_.st_uid, status_.st_gid) == 0) return;
    const int reason = errno; // only root may change owners
    if (now.st_uid != status_.st_uid) lost.push_back(fmt::format("owner ({})", systemReason(reason)));
    if (fchown(descriptor, static_cast<uid_t>(-1), status_.st_gid) == 0) return;
    lost.push_back(fmt::format("group ({})", systemReason(errno)));
    // In another group, its members were others before, and those of the old group are others now.
    const mode_t both = (mode_ >> 3) & mode_ & 07;
    mode_ = (mode_ & 0700) | (both << 3) | both;
    if (!acl_) return;
    acl_.reset();
    mode_ &= 0700;
    lost.push_back("access control list (it is another group's)");
}

int Belongings::setAccess(int descriptor) const
{
    if (acl_) return acl_set_fd(descriptor, acl_.get()) == 0 ? 0 : errno;
    // A file in a folder with a default list was made with one.
    const int isExtended = acl_extended_fd(descriptor);
    if (isExtended < 0 && !isUnsupported(errno)) return errno;
    if (isExtended > 0) {
        const Acl plain(acl_from_mode(mode_));
        if (!plain || acl_set_fd(descriptor, plain.get()) != 0) return errno;
    }
    return fchmod(descriptor, mode_) == 0 ? 0 : errno;
}

} // namespace kxtool
