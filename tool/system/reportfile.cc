// SPDX-License-Identifier: BSD-3-Clause
// A line is one write. Where only a part of it was written, that part is cut off again.
#include "tool/system/reportfile.h"

#include "tool/console/output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <tuple>

namespace kxtool {
namespace {

// What a line of a report begins with, up to the text of each member; see jsonLine().
struct Opening {
    std::string_view key;
    bool isOptional;
};
constexpr Opening kOpenings[] = {{"{\"input\":\"", false},
                                 {",\"input_bytes\":\"", true},
                                 {",\"output\":\"", false},
                                 {",\"output_bytes\":\"", true},
                                 {",\"status\":\"", false}};

// Two names of PATH_MAX bytes, as texts with six characters for a byte and as bytes with three.
constexpr std::size_t kHeadBytes = std::size_t{2} * 4096 * (6 + 3) + 256;

/// Takes a text and its closing quote off; false where there is none.
bool skipText(std::string_view& rest)
{
    for (std::size_t at = 0; at < rest.size(); at += rest[at] == '\\' ? 2 : 1) {
        if (rest[at] != '"') continue;
        rest.remove_prefix(at + 1);
        return true;
    }
    return false;
}

bool beginsAsReport(std::string_view head)
{
    if (head.empty()) return true;
    for (const auto& [key, isOptional] : kOpenings) {
        if (!head.starts_with(key)) {
            if (isOptional) continue;
            return false;
        }
        head.remove_prefix(key.size());
        if (!skipText(head)) return false;
    }
    return true;
}

bool isReportIn(int descriptor)
{
    std::string head(kHeadBytes, '\0');
    std::size_t size = 0;
    while (size < head.size()) {
        const ssize_t count = pread(descriptor, head.data() + size, head.size() - size, static_cast<off_t>(size));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        if (count == 0) break;
        size += static_cast<std::size_t>(count);
    }
    return beginsAsReport(std::string_view(head).substr(0, size));
}

// Opened for writing alone and without waiting, a pipe without a reader is refused by the system. Opened for reading as
// well, the process would be its own reader and would wait for ever once the pipe is full.
Descriptor openReport(const std::filesystem::path& file)
{
    struct stat status = {};
    const bool isThere = stat(file.c_str(), &status) == 0;
    if (isThere && S_ISBLK(status.st_mode))
        throw FileError(file, "a block device: a report would overwrite what is on it");
    const int way = isThere && !S_ISREG(status.st_mode) ? O_WRONLY : O_RDWR | O_CREAT;
    Descriptor opened(open(file.c_str(), way | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, S_IRUSR | S_IWUSR));
    if (!opened.isOpen()) {
        const bool hasNoReader = errno == ENXIO && S_ISFIFO(status.st_mode);
        throw FileError(file, hasNoReader ? "a pipe that nobody reads" : systemReason(errno));
    }
    struct stat now = {};
    if (fstat(opened.get(), &now) != 0) throw FileError(file, systemReason(errno));
    if (isThere && S_ISREG(now.st_mode) != S_ISREG(status.st_mode)) throw FileError(file, "changes while it is opened");
    if (S_ISREG(now.st_mode) && !isReportIn(opened.get()))
        throw FileError(file, "is there, and no report: it is not overwritten");
    return opened;
}

} // namespace

bool ReportFile::isReport(const std::filesystem::path& file)
{
    const Descriptor opened(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    return opened.isOpen() && isReportIn(opened.get());
}

ReportFile::ReportFile(const std::filesystem::path& file) : file_(file), descriptor_(openReport(file))
{
    std::ignore = ftruncate(descriptor_.get(), 0); // fails for a pipe or a device, which need no truncation
}

bool ReportFile::add(const std::string& line, Interruption& interruption)
{
    if (!failure_.empty()) return true;
    const std::string bytes = line + '\n';
    const int reason = interruption.write(descriptor_.get(), bytes);
    if (reason == 0) {
        size_ += static_cast<off_t>(bytes.size());
        return true;
    }
    std::ignore = ftruncate(descriptor_.get(), size_);
    failure_ = FileError(file_, systemReason(reason) + ": the report is incomplete").what();
    return false;
}

} // namespace kxtool
