// SPDX-License-Identifier: BSD-3-Clause
// How every reader of mapping files opens one and takes it apart into lines.
#pragma once

#include "kxmap/core/guards.h"
#include "kxmap/core/limits.h"

#include <array>
#include <string>

namespace kxmap {

/// Opens a file that the caller names, for reading, in text mode.
/// @return null when it cannot be opened, or is a directory.
FileHandle openFile(const std::string& path);

/// As openFile(), for the files that a mapping set finds by itself: opens regular files only, since a pipe would block
/// the server until somebody writes to it, and only by paths of at most kMaxPathBytes.
FileHandle openRegularFile(const std::string& path);

/// Reads a file line by line, long lines in pieces.
class LineReader {
public:
    /// @param file open and the caller's.
    explicit LineReader(std::FILE* file) : file_(file) {}

    /// @return the next piece, its line feed included, up to its first NUL byte; writable, valid until the next call.
    ///         Null at the end of the file, or where it cannot be read any further.
    char* next() { return std::fgets(line_.data(), static_cast<int>(line_.size()), file_); }

private:
    std::FILE* file_;
    std::array<char, kLineBufferBytes> line_;
};

} // namespace kxmap
