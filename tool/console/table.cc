// SPDX-License-Identifier: BSD-3-Clause
#include "tool/console/table.h"

#include "tool/console/utf8.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <fmt/format.h>
#include <functional>
#include <map>
#include <numeric>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kxtool {
namespace {

constexpr std::size_t kGap = 2;       // blanks between columns
constexpr std::size_t kMostLines = 6; // of one text that wraps; then "..."

// Where a line is best broken: behind blanks and behind what separates names, values and paths.
bool mayBreakBetween(char before, char after)
{
    const auto isIn = [](char c, char first, char last) { return c >= first && c <= last; };
    return std::string_view(" ^=\\/._").find(before) != std::string_view::npos ||
           (isIn(before, 'a', 'z') && isIn(after, 'A', 'Z'));
}

// Breaks a text into lines of at most `width` columns: at the best places, else anywhere between characters.
std::vector<std::string_view> wrapped(std::string_view text, std::size_t width)
{
    std::vector<std::string_view> lines;
    std::size_t begin = 0;
    std::size_t good = 0; // the line may end before it
    std::size_t columns = 0;
    for (std::size_t at = 0; at < text.size();) {
        if (at > begin && mayBreakBetween(text[at - 1], text[at])) good = at;
        const Character character = characterAt(text.substr(at));
        if (columns + character.width > width && at > begin) {
            const std::size_t end = good > begin ? good : at;
            const std::string_view line = text.substr(begin, end - begin);
            lines.push_back(line.ends_with(' ') ? line.substr(0, line.size() - 1) : line);
            begin = at = end;
            columns = 0;
            continue;
        }
        columns += character.width;
        at += character.size;
    }
    lines.push_back(text.substr(begin));
    return lines;
}

std::vector<std::string> linesOf(std::string_view text, std::size_t width)
{
    std::vector<std::string> lines;
    for (std::string_view line : wrapped(text, width)) {
        if (lines.size() == kMostLines) {
            lines.back() = "...";
            break;
        }
        lines.emplace_back(line);
    }
    return lines;
}

std::size_t totalOf(const std::vector<std::size_t>& widths)
{
    return std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
}

const char* codeOf(Color color)
{
    switch (color) {
    case Color::Bold:
        return "1";
    case Color::Dim:
        return "2";
    case Color::Red:
        return "31";
    case Color::Green:
        return "32";
    case Color::Yellow:
        return "33";
    case Color::Cyan:
        return "36";
    case Color::Plain:
        break;
    }
    return "";
}

} // namespace

void addColorOption(CLI::App& command, ColorMode& mode)
{
    static const std::map<std::string, ColorMode> names = {
        {"auto", ColorMode::Auto}, {"always", ColorMode::Always}, {"never", ColorMode::Never}};
    const std::vector<std::string> words = {"auto", "always", "never"};
    command
        .add_option_function<std::string>(
            "--color", [&mode](const std::string& word) { mode = names.at(word); },
            "When to use colours: auto (on a terminal, unless NO_COLOR is set), always, never")
        ->type_name("WHEN")
        ->check(CLI::IsMember(words).description(""));
}

bool usesColor(ColorMode mode)
{
    if (mode != ColorMode::Auto) return mode == ColorMode::Always;
    const char* refused = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    const bool isDumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    return (refused == nullptr || *refused == '\0') && !isDumb && isatty(STDOUT_FILENO) == 1;
}

std::string colored(std::string_view text, Color color, bool isOn)
{
    if (!isOn || color == Color::Plain || text.empty()) return std::string(text);
    return fmt::format("\x1B[{}m{}\x1B[0m", codeOf(color), text);
}

std::string shownUtf8(std::string_view text)
{
    std::string shown;
    while (!text.empty()) {
        const Character character = characterAt(text);
        const auto byte = static_cast<unsigned char>(text.front());
        if (character.code == 0 || (staysUnseen(character.code) && byte < 0x80))
            shown += fmt::format("\\x{:02X}", byte);
        else if (staysUnseen(character.code))
            shown += fmt::format("\\u{:04X}", static_cast<unsigned long>(character.code));
        else shown += text.substr(0, character.size);
        text.remove_prefix(character.size);
    }
    return shown;
}

std::string shownQuoted(std::string_view text)
{
    constexpr std::size_t kShown = 60;    // columns
    constexpr std::size_t kEnough = 1000; // bytes, enough for as many columns
    std::string shown = shownUtf8(text.substr(0, kEnough));
    if (displayWidth(shown) <= kShown) return '"' + shown + '"';
    while (displayWidth(shown) > kShown - 3) {
        while ((static_cast<unsigned char>(shown.back()) & 0xC0U) == 0x80) shown.pop_back();
        shown.pop_back();
    }
    return '"' + shown + "...\"";
}

std::size_t outputWidth()
{
    if (const char* columns = std::getenv("COLUMNS")) {
        std::size_t width = 0;
        const std::string_view text(columns);
        const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), width);
        if (failure == std::errc() && end == text.data() + text.size() && width > 0) return width;
    }
    struct winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

void Table::addRow(std::vector<Cell> cells)
{
    cells.resize(columns_.size());
    rows_.push_back(std::move(cells));
}

// Every column is as wide as its widest text; where that is too much, the widest of those that may wrap get narrower first.
std::vector<std::size_t> Table::widthsFor(std::size_t room) const
{
    std::vector<std::size_t> widths;
    for (std::size_t column = 0; column < columns_.size(); ++column) {
        std::size_t width = displayWidth(columns_[column].head);
        for (const auto& row : rows_) width = std::max(width, displayWidth(row[column].text));
        widths.push_back(width);
    }
    for (bool isNarrowed = room > 0; isNarrowed && totalOf(widths) > room;)
        isNarrowed = narrowWidest(widths, totalOf(widths) - room);
    return widths;
}

bool Table::narrowWidest(std::vector<std::size_t>& widths, std::size_t excess) const
{
    std::size_t widest = widths.size();
    for (std::size_t column = 0; column < widths.size(); ++column) {
        if (columns_[column].mayWrap && widths[column] > columns_[column].least &&
            (widest == widths.size() || widths[column] > widths[widest]))
            widest = column;
    }
    if (widest == widths.size()) return false;
    std::size_t& width = widths[widest];
    std::size_t next = columns_[widest].least; // or the width of the next widest
    for (std::size_t column = 0; column < widths.size(); ++column) {
        if (columns_[column].mayWrap && widths[column] < width) next = std::max(next, widths[column]);
    }
    width = std::max(std::min(next, width - 1), width - std::min(excess, width - 1));
    return true;
}

void Table::appendRow(const std::vector<Cell>& row, const std::vector<std::size_t>& widths, bool isColored,
                      std::size_t indent, std::string& out) const
{
    std::vector<std::vector<std::string>> lines;
    std::size_t height = 1;
    for (std::size_t column = 0; column < row.size(); ++column) {
        lines.push_back(linesOf(row[column].text, widths[column]));
        height = std::max(height, lines.back().size());
    }
    for (std::size_t line = 0; line < height; ++line) {
        std::size_t pending = indent; // blanks, written only before other characters
        for (std::size_t column = 0; column < row.size(); ++column) {
            const std::string_view text = line < lines[column].size() ? lines[column][line] : std::string_view();
            const std::size_t width = displayWidth(text);
            const std::size_t padding = widths[column] > width ? widths[column] - width : 0;
            if (columns_[column].isNumber) pending += padding;
            if (!text.empty()) {
                out.append(pending, ' ');
                out += colored(text, row[column].color, isColored);
                pending = 0;
            }
            pending += kGap + (columns_[column].isNumber ? 0 : padding);
        }
        out += '\n';
    }
}

// Each text on lines of its own behind its column's head, for widths in which the columns do not fit side by side.
void Table::appendRecord(const std::vector<Cell>& row, std::size_t room, bool isColored, std::size_t indent,
                         std::string& out) const
{
    constexpr std::size_t kLeastText = 8;
    std::size_t heads = 0;
    for (const Column& column : columns_) heads = std::max(heads, displayWidth(column.head));
    const std::size_t behind = room > heads + kGap + kLeastText ? room - heads - kGap : kLeastText;
    for (std::size_t column = 0; column < row.size(); ++column) {
        if (row[column].text.empty()) continue;
        std::string head = columns_[column].head;
        for (const std::string& line : linesOf(row[column].text, behind)) {
            const std::size_t padding = heads - displayWidth(head) + kGap;
            out.append(indent, ' ').append(colored(head, Color::Bold, isColored)).append(padding, ' ');
            out.append(colored(line, row[column].color, isColored)).append("\n");
            head.clear();
        }
    }
}

std::string Table::text(std::size_t width, bool isColored, std::size_t indent) const
{
    if (rows_.empty()) return {};
    const std::size_t room = width == 0 ? 0 : width - std::min(width - 1, indent);
    const std::vector<std::size_t> widths = widthsFor(room);
    std::string out;
    if (room > 0 && totalOf(widths) > room) {
        for (const auto& row : rows_) {
            if (!out.empty() && !row.front().text.empty())
                out += '\n'; // a row without a first text belongs to the row above
            appendRecord(row, room, isColored, indent, out);
        }
        return out;
    }
    std::vector<Cell> head;
    for (const Column& column : columns_) head.push_back({column.head, Color::Bold});
    appendRow(head, widths, isColored, indent, out);
    for (const auto& row : rows_) appendRow(row, widths, isColored, indent, out);
    return out;
}

} // namespace kxtool
