// SPDX-License-Identifier: BSD-3-Clause
// What kxmap says to people: every message on standard error starts with the program's name; results go to standard
// output.
#pragma once

#include <exception>
#include <filesystem>
#include <string>
#include <string_view>

namespace kxtool {

/// How much is said beside results and failures.
enum class Verbosity { Quiet, Verbose, Debug };

/// A file that could not be dealt with, and why. Commands report it and go on with the next file.
class FileError : public std::exception {
public:
    FileError(const std::filesystem::path& file, std::string_view reason);
    /// @return "<file>: <reason>"
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

/// Sets how much is said from now on. The loggers of DCMTK and the coercion module are silent when quiet: what they
/// report of a file, kxmap says in its own words. Verbose lets their errors through to standard error, debug every
/// step.
void setVerbosity(Verbosity verbosity);
Verbosity verbosity();

/// "kxmap: <text>"
void reportError(std::string_view text);
/// "kxmap: warning: <text>"
void reportWarning(std::string_view text);
/// "kxmap: <text>", unless quiet.
void reportNote(std::string_view text);

/// Writes one line of results to standard output.
void printLine(std::string_view text);

/// @return the text with its control characters as \xNN, those of the C1 set (U+0080 to U+009F, or their single bytes) among
///         them, so that a value cannot break a line or control a terminal. Other bytes stay, also where they are not
///         UTF-8.
std::string printable(std::string_view text);

/// @return what the system says of an error number.
std::string systemReason(int errorNumber);

} // namespace kxtool
