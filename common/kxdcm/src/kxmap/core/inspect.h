// SPDX-License-Identifier: BSD-3-Clause
// For programs that show rules to people: the parser that the engine uses, telling where in the text it was. Private to
// this project; its tool may include it.
#pragma once

#include "kxmap.h"
#include "kxmap/core/limits.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace kxmap {

/// A stretch of a text, in bytes from its begin.
struct Span {
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// Where one node of a tree came from.
struct NodeSpan {
    enum class Kind { Empty, Bare, Quoted, Call };

    Kind kind = Kind::Empty;
    const Expression* node = nullptr; ///< valid as long as the tree; dangling when the parse failed
    Span text;                        ///< less the blanks that were trimmed, bytes of 0x80 and above among them
    std::size_t contentEnd = 0;       ///< of a quoted text: after its closing quote; of a call: after its name
};

/// Why a right-hand side is no tree.
struct ParseFault {
    enum class Kind {
        None,
        UnknownFunction, ///< `name`
        ArgumentCount,   ///< `function` does not take `count` arguments
        StrayBracket,    ///< a ")" that closes nothing
        NoOpenBracket,   ///< an argument ends in ")" and has no "("
        OpenQuote,       ///< a quote that is not closed
        NestedTooDeeply
    };

    Kind kind = Kind::None;
    Span span;                             ///< what the message is about
    std::string name;                      ///< of UnknownFunction, as the rule has it
    const FunctionDef* function = nullptr; ///< of ArgumentCount; f_root for the right-hand side as a whole
    std::size_t count = 0;                 ///< of ArgumentCount: the arguments that the call has
};

/// What the parser met on its way through one right-hand side.
struct ParseTrace {
    std::vector<NodeSpan> nodes;        ///< callers before their arguments
    std::vector<std::size_t> swallowed; ///< commas that begin an argument, since they follow a comma directly
    std::string message;                ///< as the engine reports it; empty for success
    ParseFault fault;                   ///< what the message says, as data

    /// Parses as Expression::readCfgLine does, but reports to this object instead of error(). The message on a wrong
    /// number of arguments is logged as well. The body is in parser.cc.
    /// @param line the bytes after a rule's first "=".
    /// @return the tree; null when `message` says why.
    std::unique_ptr<Expression> parse(const char* line);
};

} // namespace kxmap
