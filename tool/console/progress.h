// SPDX-License-Identifier: BSD-3-Clause
// How far a long run is: a bar that stays at the bottom of a terminal, or a plain line now and then.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace kxtool {

/// For standard error.
class Progress {
public:
    enum class Style { None, Bar, Lines };

    using Write = std::function<void(std::string_view)>;

    /// @param total how many files there are.
    /// @param write how standard error is written to.
    Progress(Style style, std::size_t total, Write write);
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// @return a bar where standard error is a terminal that can move its cursor, else lines.
    static Style styleOfStandardError();

    /// Shows the state when it is time to.
    void update(std::size_t done, std::size_t failed);

    /// Takes a bar off the terminal, before something else is written there; update() brings it back.
    void clear();

    /// Says what the run came to.
    void finish(std::size_t done, std::size_t failed);

private:
    using Clock = std::chrono::steady_clock;

    void draw(std::size_t done, std::size_t failed) const;
    std::string state(std::size_t done, std::size_t failed) const;
    double seconds() const { return std::chrono::duration<double>(Clock::now() - begin_).count(); }

    void say(const std::string& text) const { write_("kxmap: " + text + '\n'); }

    Style style_;
    std::size_t total_;
    Write write_;
    Clock::time_point begin_ = Clock::now();
    Clock::time_point next_; // when it is time to show the state
    bool isDrawn_ = false;
};

} // namespace kxtool
