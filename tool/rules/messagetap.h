// SPDX-License-Identifier: BSD-3-Clause
// What built-ins report while they are evaluated, on standard error and through the module's logger, caught so that it
// can be shown with the rule that caused it.
#pragma once

#include "tool/system/descriptor.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

/// While this lives, what the module logs at error level goes here, and nowhere else. One at a time in a process.
class LogTap {
public:
    LogTap();
    ~LogTap();
    LogTap(const LogTap&) = delete;
    LogTap& operator=(const LogTap&) = delete;

    /// @param printed what was written to standard error meanwhile.
    /// @return the messages since the last call, a line each, those that were printed first; without line feeds.
    std::vector<std::string> take(std::string_view printed);

private:
    class Listener;

    bool wasAdditive_;
    dcmtk::log4cplus::LogLevel level_;
    std::vector<std::string> logged_;
    dcmtk::log4cplus::helpers::SharedObjectPtr<dcmtk::log4cplus::Appender> appender_;
};

/// While this lives, what the process writes to standard error, and what the module logs at error level, goes here. One
/// at a time in a process.
class MessageTap {
public:
    /// @throws FileError when the system has no room for a file in memory.
    MessageTap();
    ~MessageTap();
    MessageTap(const MessageTap&) = delete;
    MessageTap& operator=(const MessageTap&) = delete;

    /// @return the messages since the last call, a line each, those of standard error first; without line feeds.
    std::vector<std::string> take();

private:
    Descriptor caught_; // the file in memory that stands in for standard error
    Descriptor before_; // the real one
    LogTap log_;
};

} // namespace kxtool
