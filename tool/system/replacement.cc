// SPDX-License-Identifier: BSD-3-Clause
// The temporary file and its renaming.
#include "tool/system/replacement.h"

#include "tool/console/output.h"
#include "tool/system/filecopy.h"

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace kxtool {
namespace {

constexpr std::size_t kFewFolders = 2; // synchronising more, one by one, takes longer than their file system
constexpr mode_t kOrdinaryMode = 0666;

std::filesystem::path resolved(const std::filesystem::path& target)
{
    std::error_code failure;
    if (!std::filesystem::is_symlink(target, failure)) return target;
    std::filesystem::path named = std::filesystem::canonical(target, failure);
    if (failure) throw FileError(target, failure.message());
    return named;
}

std::filesystem::path folderOf(const std::filesystem::path& file)
{
    const std::filesystem::path parent = file.parent_path();
    return parent.empty() ? "." : parent;
}

} // namespace

Replacement::Replacement(const std::filesystem::path& target, const std::filesystem::path& source)
    : target_(resolved(target)), belongings_(belongingsOf(source)), temporary_(target_),
      lost_(belongings_.copyOwnerAndAttributes(temporary_.descriptor()))
{
}

Belongings Replacement::belongingsOf(const std::filesystem::path& source)
{
    struct stat status = {};
    if (stat(target_.c_str(), &status) != 0) {
        if (errno != ENOENT) throw FileError(target_, systemReason(errno));
        const bool hasSource = !source.empty() && stat(source.c_str(), &status) == 0;
        return Belongings::ofNew(folderOf(target_), hasSource ? status.st_mode : kOrdinaryMode);
    }
    // A rename would put a plain file in the place of a device or a pipe, and of a file that is write-protected.
    if (!S_ISREG(status.st_mode)) throw FileError(target_, "not a regular file");
    if (access(target_.c_str(), W_OK) != 0) throw FileError(target_, systemReason(errno));
    otherNames_ = status.st_nlink > 1 ? status.st_nlink - 1 : 0;
    return Belongings(target_, status);
}

std::uint64_t Replacement::mark() const
{
    struct stat status = {};
    return fstat(temporary_.descriptor(), &status) == 0 ? status.st_ino : 0;
}

bool Replacement::hasReplaced(const std::filesystem::path& target, std::uint64_t mark)
{
    struct stat status = {};
    return mark != 0 && stat(target.c_str(), &status) == 0 && status.st_ino == mark;
}

int Replacement::write(const void* bytes, std::size_t count)
{
    const char* next = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t written = ::write(temporary_.descriptor(), next, count);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return errno;
        next += written;
        size_ += static_cast<std::uintmax_t>(written);
        count -= static_cast<std::size_t>(written);
    }
    return 0;
}

int Replacement::copy(int source, off_t begin, std::uintmax_t count)
{
    const int reason = copyBytes(source, begin, count, temporary_.descriptor());
    if (reason == 0) size_ += count;
    return reason;
}

void Replacement::beginSync()
{
    std::ignore =
        sync_file_range(temporary_.descriptor(), 0, 0, SYNC_FILE_RANGE_WRITE); // only a hint; sync() waits and reports
}

void Replacement::sync()
{
    if (fdatasync(temporary_.descriptor()) != 0) throw FileError(target_, systemReason(errno));
}

bool Replacement::syncFileSystem()
{
    return syncfs(temporary_.descriptor()) == 0;
}

dev_t Replacement::device() const
{
    struct stat status = {};
    return fstat(temporary_.descriptor(), &status) == 0 ? status.st_dev : 0;
}

// Some file systems report a failed write only on close. A copy is closed, since the descriptor itself keeps the lock.
int Replacement::reasonOfClosing() const
{
    const int other = fcntl(temporary_.descriptor(), F_DUPFD_CLOEXEC, 0);
    return other < 0 || close(other) != 0 ? errno : 0;
}

void Replacement::commit()
{
    if (const int reason = reasonOfClosing(); reason != 0) throw FileError(target_, systemReason(reason));
    struct stat status = {};
    if (fstat(temporary_.descriptor(), &status) != 0) throw FileError(target_, systemReason(errno));
    if (static_cast<std::uintmax_t>(status.st_size) != size_) throw FileError(target_, "not written to its end");
    if (const int reason = belongings_.setAccess(temporary_.descriptor()); reason != 0)
        throw FileError(target_, fmt::format("permissions: {}", systemReason(reason)));
    if (const int reason = temporary_.renameTo(target_); reason != 0) throw FileError(target_, systemReason(reason));
}

std::filesystem::path Replacement::folder() const
{
    return folderOf(target_);
}

void syncFolders(const std::set<std::filesystem::path>& folders)
{
    std::set<dev_t> synced; // whole file systems
    for (const std::filesystem::path& folder : folders) {
        const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        struct stat status = {};
        bool isSynced = descriptor >= 0 && fstat(descriptor, &status) == 0;
        if (isSynced && folders.size() <= kFewFolders) isSynced = fsync(descriptor) == 0;
        else if (isSynced && synced.insert(status.st_dev).second) isSynced = syncfs(descriptor) == 0;
        const int reason = errno;
        if (descriptor >= 0) close(descriptor);
        if (!isSynced) throw FileError(folder, systemReason(reason));
    }
}

} // namespace kxtool
