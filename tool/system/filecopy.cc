// SPDX-License-Identifier: BSD-3-Clause
// Three ways, tried in this order: copy_file_range within one kind of file system, sendfile across kinds, read and write
// everywhere.
#include "tool/system/filecopy.h"

#include "tool/system/sink.h"

#include <sys/sendfile.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace kxtool {
namespace {

constexpr std::uintmax_t kStepBytes = std::uintmax_t(1) << 30; // for one call

// @return as read() does: bytes, 0 at the source's end, negative with errno set; both positions are moved on.
using Step = ssize_t (*)(int source, off_t& at, std::size_t count, int target);

ssize_t copyRange(int source, off_t& at, std::size_t count, int target)
{
    return copy_file_range(source, &at, target, nullptr, count, 0);
}

ssize_t send(int source, off_t& at, std::size_t count, int target)
{
    return sendfile(target, source, &at, count);
}

ssize_t readAndWrite(int source, off_t& at, std::size_t count, int target)
{
    static std::array<char, 256 * 1024> bytes;
    const ssize_t got = pread(source, bytes.data(), std::min(count, bytes.size()), at);
    if (got <= 0) return got;
    const ssize_t written = write(target, bytes.data(), static_cast<std::size_t>(got));
    if (written > 0) at += written;
    return written;
}

// Failures that another way would meet as well. All others may be due to the way: some file systems answer oddly, or with no bytes.
bool isFinal(int reason)
{
    return reason == EIO || reason == ENOSPC || reason == EDQUOT || reason == EFBIG;
}

} // namespace

int copyBytes(int source, off_t begin, std::uintmax_t count, int target)
{
    constexpr std::array<Step, 3> kWays = {copyRange, send, readAndWrite};
    std::size_t way = 0;
    off_t at = begin;
    const auto left = [&] { return count - static_cast<std::uintmax_t>(at - begin); };
    while (left() > 0) {
        const ssize_t copied = kWays[way](source, at, std::min(left(), kStepBytes), target);
        if (copied > 0 || (copied < 0 && errno == EINTR)) continue;
        const bool isLastWay = way + 1 == kWays.size();
        if (copied == 0 && isLastWay) return kSourceEnded;
        if (copied < 0 && (isLastWay || isFinal(errno))) return errno;
        ++way;
    }
    return 0;
}

} // namespace kxtool
