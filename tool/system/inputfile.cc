// SPDX-License-Identifier: BSD-3-Clause
// The system's time stamps move in ticks of up to ten milliseconds. Two changes within one tick leave the same stamp, so
// a file is not read in the tick in which it was changed.
#include "tool/system/inputfile.h"

#include "tool/console/output.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <tuple>

namespace kxtool {
namespace {

constexpr const char* kChanged = "changed while it was read";
constexpr long kNanosecondsPerMs = 1'000'000;
constexpr long kTickMs = 10;
constexpr int kMostRounds = 25; // half a second

bool isSameTime(const timespec& one, const timespec& other)
{
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

// A name that comes or goes changes st_ctim, too: another of the file's hard links may just have been replaced.
bool isSame(const struct stat& one, const struct stat& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size &&
           isSameTime(one.st_mtim, other.st_mtim) &&
           (isSameTime(one.st_ctim, other.st_ctim) || one.st_nlink != other.st_nlink);
}

// Asks about the change of content or attributes, whichever came last. Clocks of other machines may be ahead.
bool isOfThisTick(const struct stat& status)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const long seconds = now.tv_sec - status.st_ctim.tv_sec;
    if (seconds < -1 || seconds > 1) return false;
    const long ageMs = seconds * 1000 + (now.tv_nsec - status.st_ctim.tv_nsec) / kNanosecondsPerMs;
    return ageMs >= -kTickMs && ageMs <= kTickMs;
}

} // namespace

InputFile::InputFile(const std::filesystem::path& file)
    : path_(file), descriptor_(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
{
    if (!descriptor_.isOpen() || fstat(descriptor_.get(), &status_) != 0) throw FileError(path_, systemReason(errno));
    if (!S_ISREG(status_.st_mode)) throw FileError(path_, "not a regular file");
    for (int round = 0; isOfThisTick(status_); ++round) {
        if (round == kMostRounds) throw FileError(path_, "changes all the time");
        const timespec rest = {0, 2 * kTickMs * kNanosecondsPerMs};
        std::ignore = nanosleep(&rest, nullptr);
        if (fstat(descriptor_.get(), &status_) != 0) throw FileError(path_, systemReason(errno));
    }
}

ssize_t InputFile::read(std::uintmax_t at, char* bytes, std::size_t count) const
{
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got = pread(descriptor_.get(), bytes + done, count - done, static_cast<off_t>(at + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -errno;
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

void InputFile::requireUnchanged() const
{
    struct stat opened = {};
    struct stat named = {};
    if (fstat(descriptor_.get(), &opened) != 0) throw FileError(path_, systemReason(errno));
    if (stat(path_.c_str(), &named) != 0 && errno != ENOENT) throw FileError(path_, systemReason(errno));
    if (!isSame(opened, status_) || !isSame(named, status_)) throw FileError(path_, kChanged);
}

} // namespace kxtool
