// SPDX-License-Identifier: BSD-3-Clause
// A file, or nothing, and the rules typed so far: what "kxmap eval" and "kxmap shell" work on.
#pragma once

#include "tool/chartext.h"
#include "tool/dicomfile.h"
#include "tool/recorder.h"
#include "tool/rulefile.h"

#include <dcmtk/dcmdata/dcdatset.h>

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
    LineError(std::string_view message, std::string_view text, kxmap::Span fault);

    /// @return the message, the line, and carets below the fault; three lines without the last line feed.
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

/// What an expression came to.
struct Evaluation {
    std::optional<std::string> value;  ///< none for NULL
    std::vector<std::string> messages; ///< of the built-ins
    std::string failure;               ///< of a built-in that threw
};

/// All rules are applied anew to the dataset as it was read whenever one comes or goes, as if they stood in one mapping
/// file: what is there is always what that file would make. "rnd" without a seed begins each time as in a new server.
class ShellSession {
public:
    /// Reads the whole file: it may change or go while the session lasts.
    /// @param file empty for an empty dataset. @throws FileError
    explicit ShellSession(const std::filesystem::path& file);
    ~ShellSession();

    /// @return whether a line is meant as a rule: it has a "=", and no quote before it.
    static bool looksLikeRule(std::string_view line);

    /// Evaluates an expression as the next rule would, and changes nothing. @throws LineError
    Evaluation evaluate(std::string_view expression);

    /// Adds a rule. @return the step it made, valid until the next rule comes or goes. @throws LineError
    const Step& addRule(std::string_view line);

    /// Takes the last rule back. @return its text; none when there is no rule.
    std::optional<std::string> undo();

    const std::vector<RuleLine>& rules() const { return rules_.lines; }
    const Recording& recording() const { return recording_; }
    const MappingSession& session() const { return session_; }
    DcmDataset& dataset() { return *session_.dataset; }

    /// Writes the dataset as a file, whole or not at all. @throws FileError also when the session has no file.
    void save(const std::filesystem::path& target);

private:
    void applyAll();

    std::unique_ptr<DicomFile> file_;           // null without one
    std::unique_ptr<DcmDataset> empty_;         // in its stead
    std::unique_ptr<DcmDataset> original_;      // as read
    std::unique_ptr<DcmMetaInfo> originalMeta_; // as read; null without a file
    RuleFile rules_;
    MappingSession session_;
    Recording recording_;
};

} // namespace kxtool
