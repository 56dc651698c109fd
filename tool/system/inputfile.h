// SPDX-License-Identifier: BSD-3-Clause
// A file that is opened once and read through that one descriptor, so that its name may lead elsewhere meanwhile.
#pragma once

#include "tool/system/descriptor.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace kxtool {

/// An open regular file, and what it was when it was opened.
class InputFile {
public:
    /// Opens it for reading. A pipe is refused, and not waited for. Where the file was changed within the present tick of
    /// the system's clock, the next tick is waited for, so that any later change can be seen.
    /// @throws FileError
    explicit InputFile(const std::filesystem::path& file);

    const std::filesystem::path& path() const { return path_; }
    int descriptor() const { return descriptor_.get(); }
    std::uintmax_t size() const { return static_cast<std::uintmax_t>(status_.st_size); }
    /// @return what the system said of it when it was opened.
    const struct stat& status() const { return status_; }

    /// Reads from a place in the file; all of `count` unless the file ends.
    /// @return how many bytes were read, or the system's error number below zero.
    ssize_t read(std::uintmax_t at, char* bytes, std::size_t count) const;

    /// Checks that content, attributes and name are those that were opened: else parts of two contents may have been read.
    /// Certain only on file systems that use this machine's clock.
    /// @throws FileError "changed while it was read"
    void requireUnchanged() const;

private:
    std::filesystem::path path_;
    Descriptor descriptor_;
    struct stat status_ = {};
};

} // namespace kxtool
