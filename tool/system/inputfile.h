// SPDX-License-Identifier: BSD-3-Clause
// A file that is opened once and read through that one descriptor, however often its name changes hands meanwhile.
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
    /// Opens it for reading, and waits for no one: a pipe in its place is refused. A file that was changed in this very
    /// moment is waited for until the system's clock has moved on, so that any later change shows.
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

    /// Asks whether content, attributes and name are those that were opened: a reader may else have had one half of this
    /// file and one half of that. It is certain on file systems that count time as this machine does.
    /// @throws FileError "changed while it was read"
    void requireUnchanged() const;

private:
    std::filesystem::path path_;
    Descriptor descriptor_;
    struct stat status_ = {};
};

} // namespace kxtool
