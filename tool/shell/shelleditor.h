// SPDX-License-Identifier: BSD-3-Clause
// Where the shell's lines come from: a terminal with editing, history and completion, or any other standard input.
#pragma once

#include "tool/shell/shellcompletion.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kxtool {

/// One at a time in a process.
class LineSource {
public:
    using Completer = std::function<Completion(std::string_view line)>;

    /// @return lines of the terminal when standard input and output both are one, else of standard input.
    /// @param completer asked when Tab is pressed.
    static std::unique_ptr<LineSource> make(Completer completer);
    virtual ~LineSource() = default;

    /// @return the next line without its line feed; none at the end.
    virtual std::optional<std::string> next() = 0;

    virtual bool isInteractive() const = 0;
};

} // namespace kxtool
