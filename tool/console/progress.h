// SPDX-License-Identifier: BSD-3-Clause
// The progress of a long run: a bar at the bottom of a terminal, or a line at intervals.
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

    /// Shows the state when the interval is over.
    void update(std::size_t done, std::size_t failed);

    /// Removes a bar from the terminal before something else is written there; update() shows it again.
    void clear();

    /// Says how many files were done and failed, and how long it took.
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
    Clock::time_point next_; // when the state is to be shown
    bool isDrawn_ = false;
};

} // namespace kxtool
