// SPDX-License-Identifier: BSD-3-Clause
// A file, or nothing, and the rules typed so far: what "kxmap eval" and "kxmap shell" work on.
#pragma once

#include "tool/dicom/characterset.h"
#include "tool/dicom/dicomfile.h"
#include "tool/record/recorder.h"
#include "tool/rules/rulefile.h"

#include <dcmtk/dcmdata/dcdatset.h>

#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class DcmMetaInfo;

namespace kxtool {

/// Why a text is neither an expression nor a rule.
class LineError : public std::exception {
public:
    /// @param text the line, bytes as typed. @param fault what in it the message is about.
    /// @param hint what to write instead; may be empty.
    LineError(std::string_view message, std::string_view text, kxmap::Span fault, std::string_view hint = {});

    /// @return the message, the line, carets below the fault, and the hint; a line each, without the last line feed.
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

/// The rules are those of one mapping file: the dataset is always what that file makes of the dataset as it was read. "rnd" without a seed begins as in a new server.
class ShellSession {
public:
    /// Reads the whole file: it may change or go while the session lasts.
    /// @param file empty for an empty dataset. @throws FileError
    explicit ShellSession(const std::filesystem::path& file);
    ~ShellSession();

    /// @return whether a line is meant as a rule: it has a "=", and no quote before it.
    static bool looksLikeRule(std::string_view line);

    /// @return what "kxmap check" would say of an expression, and whether it is a rule; nothing of one that does not parse.
    static std::vector<std::string> notesOn(std::string_view expression);

    /// Evaluates an expression as the next rule would, and changes nothing. @throws LineError
    Evaluation evaluate(std::string_view expression);

    /// Adds a rule. @return the step it made, valid until a rule is taken back. @throws LineError
    const Step& addRule(std::string_view line);

    /// Takes the last rule back. @return its text; none when there is no rule.
    std::optional<std::string> undo();

    const std::deque<RuleLine>& rules() const { return rules_; }
    const Recording& recording() const { return recording_; }
    const MappingSession& session() const { return session_; }
    DcmDataset& dataset() { return *session_.dataset; }

    /// Writes the dataset as a file, whole or not at all. @throws FileError also when the session has no file.
    void save(const std::filesystem::path& target);

private:
    void applyAll();

    std::unique_ptr<DicomFile> file_;           // null without one
    bool hasReplacedSource_ = false;            // by save(), which may replace it again
    std::unique_ptr<DcmDataset> empty_;         // used without a file
    std::unique_ptr<DcmDataset> original_;      // as read
    std::unique_ptr<DcmMetaInfo> originalMeta_; // as read; null without a file
    const RuleFile source_;                     // what rules are said to stand in
    std::deque<RuleLine> rules_;                // what is recorded refers to them
    MappingSession session_;
    Recording recording_;
};

} // namespace kxtool
