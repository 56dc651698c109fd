// SPDX-License-Identifier: BSD-3-Clause
// What a worker pool and its workers share: the table of tasks in shared memory, and the form of what is sent through the
// pipes.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kxtool {

/// An outcome as it is sent through a pipe: this head, then its three texts.
struct Frame {
    enum class Kind : std::uint8_t { Final, Prepared, Confirmed };

    std::size_t task;
    std::uint64_t mark;
    Kind kind;
    bool isGood;
    std::array<std::size_t, 3> sizes;
};

class SharedTasks {
public:
    static constexpr unsigned kNobody = 0;

    struct Task {
        std::atomic<unsigned> owner;  // the worker that has it
        std::atomic<unsigned> deaths; // of workers that had it
    };

    static std::size_t bytes(std::size_t tasks) { return sizeof(SharedTasks) + tasks * sizeof(Task); }

    explicit SharedTasks(std::size_t tasks) : count(tasks) {}

    // Behind this object; zero, which the memory is filled with, is a good start.
    Task& operator[](std::size_t task) { return reinterpret_cast<Task*>(this + 1)[task]; }

    /// The first task that may be free, so that a search need not begin at 0. Which are free the owners say.
    std::atomic<std::size_t> hint = 0;
    const std::size_t count;
};

} // namespace kxtool
