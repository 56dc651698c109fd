// SPDX-License-Identifier: BSD-3-Clause
// Owners for what function bodies hold: every way out of a function, a `throw` included, lets go of it.
#pragma once

#include "kxmap.h"

#include <dirent.h>

#include <cstdio>
#include <memory>
#include <utility>

namespace kxmap {

/// Holds one reference to a value; null holds nothing.
class ValueRef {
public:
    explicit ValueRef(Value* value) : value_(value) {}
    ValueRef(const ValueRef&) = delete;
    ValueRef& operator=(const ValueRef&) = delete;
    ~ValueRef() { drop(value_); }

    Value* get() const { return value_; }

    /// Lets go of what is held and takes over another reference.
    void reset(Value* value) { drop(std::exchange(value_, value)); }

    /// Hands the reference on.
    Value* release() { return std::exchange(value_, nullptr); }

    /// Gives up one reference to `value`, which may be null.
    static void drop(Value* value)
    {
        if (value != nullptr && --value->refCount == 0) delete value;
    }

private:
    Value* value_;
};

/// A text from newdup(), or null.
using CharArray = std::unique_ptr<char[]>;

struct FileCloser {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); } // read only: nothing can be lost
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

struct DirCloser {
    void operator()(DIR* directory) const { static_cast<void>(::closedir(directory)); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

} // namespace kxmap
