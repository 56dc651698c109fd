// SPDX-License-Identifier: BSD-3-Clause
// What every test file shares: a dataset with one element of each kind that matters, ears on the module's logger and on
// standard error, a folder that goes away, and one-line checks of rules.
#pragma once

#include "kxmap.h"
#include "support/sample.h"

#include <dcmtk/dcmdata/dctk.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kxtest {

constexpr int kDebug = 10000;
constexpr int kError = 40000;

struct LogEvent {
    int level;
    std::string message;
    std::string file;
    int line;
    std::string function;
};

/// Takes what the module logs while it lives; nothing of it reaches other appenders.
class LogCapture {
public:
    /// @param minimumLevel the module's level for the time being; OFF_LOG_LEVEL for none. Restored at the end.
    explicit LogCapture(int minimumLevel = kDebug);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// @param level only those of this level; 0 for all.
    std::vector<std::string> messages(int level = 0) const;
    const std::vector<LogEvent>& events() const;
    void clear(); // forgets what was logged so far

private:
    class Recorder;
    Recorder* recorder_; // held by appender_
    dcmtk::log4cplus::SharedAppenderPtr appender_;
    int levelBefore_;
    bool additiveBefore_;
};

/// Takes the process's standard error stream, at the descriptor, while it lives.
class StderrCapture {
public:
    StderrCapture();
    ~StderrCapture();
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    /// @return everything written so far.
    std::string text();

private:
    std::FILE* file_;
    int stderrBefore_;
};

/// A new folder below the system's one for temporary files; removed with all it holds.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }

    /// Writes a file, its folders made on the way. @return its full path.
    std::string write(const std::string& relative, std::string_view bytes) const;

private:
    std::filesystem::path path_;
};

/// @return the element's text on this level, "" for one without a text form, "-" when it is absent.
std::string textOf(DcmItem& item, DcmTagKey key);

/// What a right-hand side came to.
struct Outcome {
    bool parsed = false;
    bool isNull = true;
    std::string text;
    std::string parseErrors; // what errorlogs gained
    int holders = 0;         // refCount in the caller's hands
};

/// Parses a right-hand side as a rule does, and evaluates it once.
Outcome evaluate(const char* expression, MappingSession& session);

/// Passes when the right-hand side parses and comes to `expected`; null stands for NULL.
testing::AssertionResult evaluatesTo(const char* expression, const char* expected, MappingSession& session);
testing::AssertionResult evaluatesTo(const char* expression, const char* expected); // on a fresh session

struct RuleCase {
    const char* expression;
    const char* expected; // null: NULL
};

/// Evaluates every row, each on a fresh session.
void expectRules(std::span<const RuleCase> table);

/// As evaluatesTo(), and checks which operands were evaluated, in order. In `pattern` "?A" is a NULL and "!A" the text
/// "A", "!5" the text "5"; each leaves its mark in `trace` whenever it is evaluated. Other "?" and "!" cannot be used.
testing::AssertionResult tracesTo(const char* pattern, const char* expected, const char* trace);

} // namespace kxtest
