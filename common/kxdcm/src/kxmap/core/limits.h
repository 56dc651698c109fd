// SPDX-License-Identifier: BSD-3-Clause
// Every limit of the module, with what it protects.
#pragma once

#include <cstddef>

namespace kxmap {

/// The buffer of the line reader, its terminator included. A longer physical line comes in several pieces.
constexpr std::size_t kLineBufferBytes = 2040;

/// A mapping's name with its terminator (`Mapping::name`). Longer ones are cut, and then serve no AE title.
constexpr std::size_t kMappingNameBytes = 128;

/// Calls within calls, down from the root wrapper. Bounds the stack that parsing, evaluating, printing and destroying a
/// tree take, and bounds the parser's time to the text's length times this. A line of a mapping file has room
/// for fewer than 1,020 levels; only a text in memory can be refused. Parsing, evaluating and printing at the limit
/// take less than 256 KiB of stack. Literals and messages have no limit of their own: they grow with the text.
constexpr int kMaxNesting = 1024;

/// The longest text that "concat" joins. The total is a 32-bit number; beyond it the result is NULL.
constexpr std::size_t kMaxJoinedBytes = 0x7FFFFFFD;

/// The bytes of a text that "codestring" codes; the rest is cut off.
constexpr std::size_t kMaxCodedBytes = 64;

/// The array of the syntax check's message, its terminator included. Longer messages are cut.
constexpr std::size_t kSyntaxMessageBytes = 2048;

/// A path of a file of a mapping set, without its terminator. A longer one counts as a file that cannot be opened.
constexpr std::size_t kMaxPathBytes = 1023;

} // namespace kxmap
