// SPDX-License-Identifier: BSD-3-Clause
// Where the bytes of a result go: into a new file, or nowhere in a dry run.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace kxtool {

/// What a copy answers, instead of a system's error number, when the source ended before all bytes were copied.
constexpr int kSourceEnded = -1;

/// Takes bytes in their order. After a failure its content must not be used.
class Sink {
public:
    Sink() = default;
    virtual ~Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    /// @return the file that failures are told of.
    virtual const std::filesystem::path& target() const = 0;

    /// Adds bytes. @return 0, or the system's error number.
    virtual int write(const void* bytes, std::size_t count) = 0;

    /// Adds `count` bytes of an open file from `begin` on; its own position is neither used nor changed.
    /// @return 0, the system's error number, or kSourceEnded.
    virtual int copy(int source, off_t begin, std::uintmax_t count) = 0;

    /// @return how many bytes were added.
    virtual std::uintmax_t size() const = 0;
};

/// Counts bytes and keeps none: what can be written into it can be written, but for what only a disk refuses.
class CountingSink : public Sink {
public:
    explicit CountingSink(const std::filesystem::path& target) : target_(target) {}

    const std::filesystem::path& target() const override { return target_; }
    int write(const void*, std::size_t count) override
    {
        size_ += count;
        return 0;
    }
    int copy(int, off_t, std::uintmax_t count) override
    {
        size_ += count;
        return 0;
    }
    std::uintmax_t size() const override { return size_; }

private:
    std::filesystem::path target_;
    std::uintmax_t size_ = 0;
};

} // namespace kxtool
