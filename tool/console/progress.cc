// SPDX-License-Identifier: BSD-3-Clause
// The bar is redrawn in place with a carriage return and "erase to end of line", which every terminal but "dumb" knows.
#include "tool/console/progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace kxtool {
namespace {

using namespace std::chrono_literals;

constexpr auto kFirstBar = 500ms; // a short run shows none
constexpr auto kBarInterval = 200ms;
constexpr auto kLineInterval = 5s;
constexpr std::size_t kMinBarColumns = 10;
constexpr std::size_t kMaxBarColumns = 40;
constexpr std::size_t kUsualColumns = 80;

std::size_t terminalColumns()
{
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
    return size.ws_col;
}

std::string duration(double seconds)
{
    const auto whole = static_cast<long>(std::ceil(seconds));
    if (whole < 60) return fmt::format("{} s", whole);
    if (whole < 3600) return fmt::format("{}:{:02} min", whole / 60, whole % 60);
    return fmt::format("{}:{:02} h", whole / 3600, whole / 60 % 60);
}

} // namespace

Progress::Progress(Style style, std::size_t total, Write write)
    : style_(style), total_(total), write_(std::move(write)),
      next_(begin_ + (style == Style::Bar ? Clock::duration(kFirstBar) : kLineInterval))
{
}

Progress::Style Progress::styleOfStandardError()
{
    const char* terminal = std::getenv("TERM");
    const bool isDumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    return isatty(STDERR_FILENO) == 1 && !isDumb ? Style::Bar : Style::Lines;
}

void Progress::update(std::size_t done, std::size_t failed)
{
    if (style_ == Style::None || Clock::now() < next_) return;
    next_ = Clock::now() + (style_ == Style::Bar ? Clock::duration(kBarInterval) : kLineInterval);
    if (style_ == Style::Lines) {
        say(state(done, failed));
    } else {
        draw(done, failed);
        isDrawn_ = true;
    }
}

void Progress::draw(std::size_t done, std::size_t failed) const
{
    std::string text = state(done, failed);
    const std::size_t columns = terminalColumns() - 1; // the last column would wrap
    const std::size_t room = columns > text.size() + 3 ? columns - text.size() - 3 : 0;
    if (room >= kMinBarColumns) {
        const std::size_t width = std::min(room, kMaxBarColumns);
        const std::size_t filled = width * done / std::max<std::size_t>(total_, 1);
        text = fmt::format("[{}{}] {}", std::string(filled, '#'), std::string(width - filled, '.'), text);
    }
    write_(fmt::format("\r{}\x1b[K", text.substr(0, columns)));
}

void Progress::clear()
{
    if (!isDrawn_) return;
    write_("\r\x1b[K");
    isDrawn_ = false;
    next_ = std::min(next_, Clock::now() + kBarInterval);
}

void Progress::finish(std::size_t done, std::size_t failed)
{
    clear();
    if (style_ == Style::None) return;
    const double elapsed = seconds();
    const double rate = elapsed > 0 ? static_cast<double>(done) / elapsed : 0;
    say(fmt::format("{} of {} files in {}, {:.0f}/s{}", done, total_, duration(elapsed), rate,
                    failed == 0 ? "" : fmt::format(", {} failed", failed)));
}

std::string Progress::state(std::size_t done, std::size_t failed) const
{
    std::string text = fmt::format("{} of {} files", done, total_);
    const double elapsed = seconds();
    if (done > 0 && elapsed > 0) {
        const double rate = static_cast<double>(done) / elapsed;
        text += fmt::format(", {:.{}f}/s, {} left", rate, rate < 10 ? 1 : 0,
                            duration(static_cast<double>(total_ - done) / rate));
    }
    if (failed > 0) text += fmt::format(", {} failed", failed);
    return text;
}

} // namespace kxtool
