// SPDX-License-Identifier: BSD-3-Clause
// A mapping file as the engine's readers take it apart, with what they forget: where each rule stands and what became of
// the lines that are none. Checking, tracing and listing all begin here.
#pragma once

#include "kxmap/core/inspect.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace kxtool {

/// One piece that the engine's line reader delivers: a physical line, or a part of one that is too long for it.
struct RuleLine {
    enum class Kind {
        Rule,         ///< both sides parsed
        Bad,          ///< has a "=" and is dropped
        WithoutEquals ///< a comment, a blank line, or a slip; dropped, and the readers say nothing
    };

    Kind kind = Kind::WithoutEquals;
    unsigned line = 0;      ///< the physical line, from 1
    std::size_t column = 0; ///< the piece's first byte in that line, from 0; not 0 for a later piece of it
    bool isCut = false;     ///< the physical line goes on in the next piece
    bool hasNul = false;    ///< a NUL byte ends the piece for the engine; what follows it is not in `text`
    std::string text;       ///< without its line feed, and a carriage return before that

    // Of rules and bad lines:
    std::size_t equals = 0;                 ///< the first "=" in `text`
    std::unique_ptr<LVObject> target;       ///< null when the left side is bad, and then the right side was not parsed
    std::string leftMessage;                ///< what the engine reports of a bad left side; may be empty even so
    kxmap::ParseTrace trace;                ///< of the right side; its offsets count from `rightBegin()`
    std::unique_ptr<Expression> expression; ///< null when `trace.message` says why, or the left side is bad

    std::string_view left() const { return std::string_view(text).substr(0, equals); }
    std::size_t rightBegin() const { return equals + 1; }
    std::string_view right() const { return std::string_view(text).substr(rightBegin()); }

    /// Says whether something is lost with the line: it is dropped, and neither blank nor a comment.
    bool isLost() const;

    /// @return what the engine reports when it drops the line, without its line feed: "Error: Unknown function:foo"; empty
    ///         for a rule, and for what is dropped in silence.
    std::string message() const;
};

/// A mapping file, whole.
struct RuleFile {
    std::filesystem::path path;
    std::vector<RuleLine> lines;                 ///< in the order of the file
    std::string bytes{};                         ///< its content
    std::unordered_set<std::string> variables{}; ///< that rules write

    std::size_t ruleCount() const;
    std::size_t badCount() const; ///< of lines that are lost
};

/// Reads a mapping file in the engine's pieces with the engine's parsers. Empties `errorlogs`; the module's logger is
/// silent meanwhile.
/// @throws FileError when it cannot be read.
RuleFile readRuleFile(const std::filesystem::path& path);

/// Reads rules from a text, as if it were the content of a file of that name.
RuleFile readRuleText(std::string_view text, const std::filesystem::path& name);

} // namespace kxtool
