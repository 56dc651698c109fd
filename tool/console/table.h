// SPDX-License-Identifier: BSD-3-Clause
// Tables and colours for people: aligned by the columns that a text takes on a terminal, as wide as the terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace kxtool {

/// What --color says.
enum class ColorMode { Auto, Always, Never };

/// Adds the option --color to a command.
void addColorOption(CLI::App& command, ColorMode& mode);

/// @return whether standard output gets colours: for Auto when it is a terminal that has them, and NO_COLOR is unset or
///         empty.
bool usesColor(ColorMode mode);

enum class Color { Plain, Bold, Dim, Red, Green, Yellow, Cyan };

/// @return the text between the terminal's codes for a colour; the text itself when `isOn` is false or it is Plain.
std::string colored(std::string_view text, Color color, bool isOn);

/// @return the text fit to be shown: control characters (those of the C1 set too), characters that change the direction
///         of writing or do not show, and bytes that are no UTF-8 are spelled out as \x1B and \u202E. Others stay.
std::string shownUtf8(std::string_view text);

/// @return a text of UTF-8 in double quotes, fit to be shown in a sentence: cut where it is long.
std::string shownQuoted(std::string_view text);

/// @return the columns of standard output: COLUMNS when it is set to a number, else the terminal's; 0 for no limit when
///         it is no terminal.
std::size_t outputWidth();

/// Rows of UTF-8 texts under a head. Texts are shown as they are: pass them through shownUtf8() where they come from a
/// file.
class Table {
public:
    struct Cell {
        std::string text;
        Color color = Color::Plain;
    };
    struct Column {
        std::string head;
        bool isNumber = false; ///< aligned to the right, never broken
        bool mayWrap = false;  ///< gets narrower when the table is too wide: its texts continue in the next line
        std::size_t least = 8; ///< its width is never below this
    };

    explicit Table(std::vector<Column> columns);

    /// @param cells one for each column; fewer leave the last ones empty.
    void addRow(std::vector<Cell> cells);

    /// @param width the columns there are; 0 for no limit: every row is one line. Where the columns do not fit even so, the
    ///        texts of a row stand below each other, each behind its column's head.
    /// @param indent blanks in front of every line.
    /// @return lines, each with its line feed and without blanks at its end; empty without rows.
    std::string text(std::size_t width, bool isColored, std::size_t indent = 0) const;

private:
    std::vector<std::size_t> widthsFor(std::size_t room) const;
    /// Takes width from the widest column that may wrap. @return false where none may get narrower.
    bool narrowWidest(std::vector<std::size_t>& widths, std::size_t excess) const;
    void appendRow(const std::vector<Cell>& row, const std::vector<std::size_t>& widths, bool isColored,
                   std::size_t indent, std::string& out) const;
    void appendRecord(const std::vector<Cell>& row, std::size_t room, bool isColored, std::size_t indent,
                      std::string& out) const;

    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

} // namespace kxtool
