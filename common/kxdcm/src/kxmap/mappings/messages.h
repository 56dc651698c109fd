// SPDX-License-Identifier: BSD-3-Clause
// What the readers of mapping files report. Traces of normal work stand where they are logged.
#pragma once

namespace kxmap {

constexpr const char* kCannotOpen = "Coercion couldn't open file: "; // then the file's name
constexpr const char* kSyntaxErrorFormat = "Syntax error in line: %s [ %s ]";

} // namespace kxmap
