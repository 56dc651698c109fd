// SPDX-License-Identifier: BSD-3-Clause
// The temporary file, its way into the target's place, and what signals leave of it.
#include "tool/replacement.h"

#include "tool/output.h"
#include "tool/signals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <random>
#include <tuple>
#include <unistd.h>

namespace kxtool {
namespace {

constexpr std::size_t kFewFolders = 2; // synchronising more, one by one, takes longer than their file system

// Tells the temporary files of this run from those of another machine, whose processes may have the same numbers. Drawn
// before any process is forked.
const std::uint32_t kRunToken = std::random_device()();

std::filesystem::path temporaryName(const std::filesystem::path& target, pid_t process, std::size_t slot)
{
    return target.parent_path() / fmt::format("{}{}-{:08x}-{}", kTemporaryPrefix, process, kRunToken, slot);
}

// The files that the signal handler removes; null for none. Changed only while the signals are held back.
std::array<const char*, kMaxReplacements> pendingPaths;

extern "C" void removePendingAndEnd(int signalNumber)
{
    for (const char* path : pendingPaths) {
        if (path != nullptr) unlink(path);
    }
    std::ignore = raise(signalNumber); // the handler was reset on entry, so this ends the process as the signal does
}

void installHandlersOnce()
{
    static const bool isInstalled = [] {
        struct sigaction action = {};
        action.sa_handler = removePendingAndEnd;
        action.sa_mask = heededSignals(); // a second one waits until the files are gone
        action.sa_flags = static_cast<int>(SA_RESETHAND | static_cast<unsigned>(SA_NODEFER));
        for (const int signalNumber : kEndingSignals) {
            if (sigismember(&action.sa_mask, signalNumber) == 1) sigaction(signalNumber, &action, nullptr);
        }
        return true;
    }();
    std::ignore = isInstalled;
}

mode_t modeOfNew(const std::filesystem::path& source)
{
    struct stat status = {};
    const mode_t mode = !source.empty() && stat(source.c_str(), &status) == 0 ? status.st_mode & 0777 : 0666;
    const mode_t mask = umask(0);
    umask(mask);
    return mode & ~mask;
}

} // namespace

Replacement::Replacement(const std::filesystem::path& target, const std::filesystem::path& source) : target_(target)
{
    struct stat status = {};
    bool isThere = lstat(target_.c_str(), &status) == 0;
    if (isThere && S_ISLNK(status.st_mode)) {
        std::error_code failure;
        target_ = std::filesystem::canonical(target, failure);
        if (failure) throw FileError(target, failure.message());
        isThere = stat(target_.c_str(), &status) == 0;
    }
    if (isThere) {
        // A rename would put a plain file in the place of a device or a pipe, and of a file that is write-protected.
        if (!S_ISREG(status.st_mode)) throw FileError(target, "not a regular file");
        if (access(target_.c_str(), W_OK) != 0) throw FileError(target, systemReason(errno));
    }
    installHandlersOnce();
    createTemporary();
    if (isThere) adoptAttributes(status);
    else std::ignore = fchmod(descriptor_, modeOfNew(source));
}

Replacement::~Replacement()
{
    if (descriptor_ >= 0) close(descriptor_);
    if (temporary_.empty()) return;
    const SignalsHeld held;
    unlink(temporary_.c_str());
    pendingPaths[slot_] = nullptr;
}

void Replacement::createTemporary()
{
    const SignalsHeld held;
    const auto slot = std::ranges::find(pendingPaths, nullptr);
    if (slot == pendingPaths.end()) throw FileError(target_, "too many files under way"); // a fault in the caller
    slot_ = static_cast<std::size_t>(slot - pendingPaths.begin());
    temporary_ = temporaryName(target_, getpid(), slot_);
    descriptor_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); // patients' data
    if (descriptor_ >= 0) {
        *slot = temporary_.c_str();
        return;
    }
    temporary_.clear();
    throw FileError(target_, systemReason(errno));
}

void Replacement::adoptAttributes(const struct stat& target)
{
    otherNames_ = target.st_nlink > 1 ? target.st_nlink - 1 : 0;
    mode_t mode = target.st_mode & 07777;
    if (fchown(descriptor_, target.st_uid, target.st_gid) != 0) { // only root may; others own what they write
        mode &= 0777;
        // In another group, its members were others before, and those of the old group are others now.
        const mode_t both = (mode >> 3) & mode & 07;
        if (fchown(descriptor_, static_cast<uid_t>(-1), target.st_gid) != 0) mode = (mode & 0700) | (both << 3) | both;
    }
    std::ignore = fchmod(descriptor_, mode); // last: fchown clears bits
}

std::uint64_t Replacement::mark() const
{
    struct stat status = {};
    return fstat(descriptor_, &status) == 0 ? status.st_ino : 0;
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
        const ssize_t written = ::write(descriptor_, next, count);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return errno;
        next += written;
        size_ += static_cast<std::uintmax_t>(written);
        count -= static_cast<std::size_t>(written);
    }
    return 0;
}

void Replacement::beginSync()
{
    std::ignore = sync_file_range(descriptor_, 0, 0, SYNC_FILE_RANGE_WRITE); // only a hint; sync() is what counts
}

void Replacement::sync()
{
    if (fdatasync(descriptor_) != 0) throw FileError(target_, systemReason(errno));
}

bool Replacement::syncFileSystem()
{
    return syncfs(descriptor_) == 0;
}

dev_t Replacement::device() const
{
    struct stat status = {};
    return fstat(descriptor_, &status) == 0 ? status.st_dev : 0;
}

void Replacement::commit()
{
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (close(descriptor) != 0) throw FileError(target_, systemReason(errno)); // some file systems only tell here
    const SignalsHeld held;
    if (rename(temporary_.c_str(), target_.c_str()) != 0) throw FileError(target_, systemReason(errno));
    pendingPaths[slot_] = nullptr;
    temporary_.clear();
}

std::filesystem::path Replacement::folder() const
{
    const std::filesystem::path parent = target_.parent_path();
    return parent.empty() ? "." : parent;
}

void removeTemporariesOf(pid_t process, const std::set<std::filesystem::path>& targets)
{
    std::set<std::filesystem::path> folders;
    for (const std::filesystem::path& target : targets) {
        std::error_code failure;
        const std::filesystem::path resolved = std::filesystem::canonical(target, failure); // of a link
        folders.insert((failure ? target : resolved).parent_path());
    }
    for (const std::filesystem::path& folder : folders) {
        for (std::size_t slot = 0; slot < kMaxReplacements; ++slot)
            unlink(temporaryName(folder / "", process, slot).c_str());
    }
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
