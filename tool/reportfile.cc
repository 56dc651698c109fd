// SPDX-License-Identifier: BSD-3-Clause
// A line is one write; what a full disk has taken of it is taken back.
#include "tool/reportfile.h"

#include "tool/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <tuple>

namespace kxtool {
namespace {

bool beginsAsReport(int descriptor)
{
    char first = '{';
    return pread(descriptor, &first, 1, 0) <= 0 || first == '{';
}

} // namespace

bool ReportFile::isReport(const std::filesystem::path& file)
{
    return beginsAsReport(Descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC)).get());
}

ReportFile::ReportFile(const std::filesystem::path& file)
    : file_(file), descriptor_(open(file.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666))
{
    if (!descriptor_.isOpen()) throw FileError(file_, systemReason(errno));
    if (!beginsAsReport(descriptor_.get())) throw FileError(file_, "is there, and no report: it is not overwritten");
    std::ignore = ftruncate(descriptor_.get(), 0); // a pipe or a device cannot, and need not
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
    failure_ = FileError(file_, systemReason(reason) + ": the report ends before its end").what();
    return false;
}

} // namespace kxtool
