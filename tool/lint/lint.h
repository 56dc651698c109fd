// SPDX-License-Identifier: BSD-3-Clause
// What can be said of mapping files before they are installed: the lines that the engine drops, and rules that do not
// do what they seem to. Every kind of finding is a row of one table.
#pragma once

#include "tool/console/table.h"
#include "tool/rules/rulefile.h"

#include <bitset>
#include <filesystem>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

enum class Severity { Error, Warning };

/// The kinds of findings, in the order of kChecks.
enum class Check : unsigned char {
    BinaryFile,
    MissingEquals,
    EmptyTarget,
    BlankBeforeEquals,
    BadTarget,
    UnknownFunction,
    ArgumentCount,
    BracketMismatch,
    UnclosedQuote,
    NestingTooDeep,
    CommentWithEquals,
    IndentedComment,
    BlankLine,
    LongLine,
    TrimmedBytes,
    NulByte,
    ByteOrderMark,
    CarriageReturn,
    BareFunction,
    BareVariable,
    BareKeyword,
    QuotedReference,
    Placeholder,
    ForeignQuote,
    ForeignPattern,
    InfixOperator,
    TrailingComment,
    TextAfterBracket,
    UnclosedBracket,
    QuoteInBareText,
    SwallowedComma,
    TextAfterQuote,
    LostBackslash,
    ConstantCondition,
    AlwaysNull,
    NeverEqual,
    ConstantCall,
    SameParts,
    UnreachableArgument,
    ArgumentOrder,
    LongSeparator,
    NotANumber,
    NumberRange,
    ArithmeticOnText,
    NoText,
    OddTag,
    TwoFieldSeq,
    NoSequence,
    UnknownTag,
    HeaderGroup,
    CharacterSet,
    InstanceUid,
    Identity,
    Pixels,
    ValueTooLong,
    ValueForm,
    VrMismatch,
    NonAscii,
    CaseChange,
    NoEffect,
    Overwritten,
    ReadAfterDelete,
    SecondWrite,
    UnsetVariable,
    UnusedVariable,
    EmptyFile,
    TitleTooLong,
    OddFileName,
    FileNotRead,
    OutboundInbound,
};

struct CheckInfo {
    Check check;
    const char* name; ///< stable: command lines and other programs hold it
    Severity severity;
    bool isDefault;   ///< warnings: reported unless switched off
    const char* sees; ///< one line
};

constexpr CheckInfo kChecks[] = {
    // Errors: the engine drops the line. They cannot be switched off.
    {Check::BinaryFile, "binary-file", Severity::Error, true, "a file that is no text"},
    {Check::MissingEquals, "missing-equals", Severity::Error, true, "a line that is neither a rule nor a comment"},
    {Check::EmptyTarget, "empty-target", Severity::Error, true, "nothing before \"=\""},
    {Check::BlankBeforeEquals, "blank-before-equals", Severity::Error, true, "a blank between the target and \"=\""},
    {Check::BadTarget, "bad-target", Severity::Error, true, "a target that the engine does not understand"},
    {Check::UnknownFunction, "unknown-function", Severity::Error, true, "a call of a function that does not exist"},
    {Check::ArgumentCount, "argument-count", Severity::Error, true, "a call with too few or too many arguments"},
    {Check::BracketMismatch, "bracket-mismatch", Severity::Error, true, "a \")\" without its \"(\""},
    {Check::UnclosedQuote, "unclosed-quote", Severity::Error, true, "a quoted text without its closing quote"},
    {Check::NestingTooDeep, "nesting-too-deep", Severity::Error, true, "more than 1024 calls within calls"},
    // The text of a line.
    {Check::CommentWithEquals, "comment-with-equals", Severity::Warning, true, "a \"#\" line that holds a \"=\""},
    {Check::IndentedComment, "indented-comment", Severity::Warning, true, "a blank before the \"#\" of a comment"},
    {Check::BlankLine, "blank-line", Severity::Warning, true, "a line of blanks alone"},
    {Check::LongLine, "long-line", Severity::Warning, true, "a line longer than 2039 bytes, which is cut"},
    {Check::TrimmedBytes, "trimmed-bytes", Severity::Warning, true,
     "non-ASCII bytes at the edge of a text, which are trimmed"},
    {Check::NulByte, "nul-byte", Severity::Warning, true, "a NUL byte, which ends the line early"},
    {Check::ByteOrderMark, "byte-order-mark", Severity::Warning, true, "a byte order mark before the first line"},
    {Check::CarriageReturn, "carriage-return", Severity::Warning, true,
     "a carriage return within a line, which ends none"},
    // The right side.
    {Check::BareFunction, "bare-function", Severity::Warning, true, "a word without brackets that names a function"},
    {Check::BareVariable, "bare-variable", Severity::Warning, true,
     "a word that begins with \"$\" and reads no variable"},
    {Check::BareKeyword, "bare-keyword", Severity::Warning, true, "a word that is a keyword of the data dictionary"},
    {Check::QuotedReference, "quoted-reference", Severity::Warning, true,
     "a tag, variable or call inside a text, which is not read"},
    {Check::Placeholder, "placeholder", Severity::Warning, true, "a placeholder of a shell or a format inside a text"},
    {Check::ForeignQuote, "foreign-quote", Severity::Warning, true, "quotes that are none here"},
    {Check::ForeignPattern, "foreign-pattern", Severity::Warning, true,
     "a wildcard or regular expression that is compared"},
    {Check::InfixOperator, "infix-operator", Severity::Warning, true, "a text that looks like an operation"},
    {Check::TrailingComment, "trailing-comment", Severity::Warning, true,
     "a comment behind a text, which becomes part of it"},
    {Check::TextAfterBracket, "text-after-bracket", Severity::Warning, true,
     "bytes after the \")\" of a call, which make a text of it"},
    {Check::UnclosedBracket, "unclosed-bracket", Severity::Warning, true,
     "a \"(\" without its \")\", which makes a text of the call"},
    {Check::QuoteInBareText, "quote-in-bare-text", Severity::Warning, true,
     "a quote within a text that does not begin with one"},
    {Check::SwallowedComma, "swallowed-comma", Severity::Warning, true, "two commas in a row: the second becomes text"},
    {Check::TextAfterQuote, "text-after-quote", Severity::Warning, true,
     "bytes after a closing quote, which are ignored"},
    {Check::LostBackslash, "lost-backslash", Severity::Warning, true, "a backslash that vanishes from a quoted text"},
    {Check::ConstantCondition, "constant-condition", Severity::Warning, true,
     "a condition that is always true: a text, a number, what is never NULL"},
    {Check::AlwaysNull, "always-null", Severity::Warning, true, "a call that is NULL, whatever the dataset holds"},
    {Check::NeverEqual, "never-equal", Severity::Warning, true, "texts compared that are never the same"},
    {Check::ConstantCall, "constant-call", Severity::Warning, true, "a call that comes to the same for every dataset"},
    {Check::SameParts, "same-parts", Severity::Warning, true, "branches, conditions or pairs that are the same"},
    {Check::UnreachableArgument, "unreachable-argument", Severity::Warning, true,
     "an argument of \"or\" after one that is never NULL"},
    {Check::ArgumentOrder, "argument-order", Severity::Warning, true, "arguments that stand in each other's place"},
    {Check::LongSeparator, "long-separator", Severity::Warning, true,
     "a separator of several bytes: the first one alone parts texts"},
    {Check::NotANumber, "not-a-number", Severity::Warning, true, "a text that is no whole number where one is read"},
    {Check::NumberRange, "number-range", Severity::Warning, true, "a number that 32 bits do not hold"},
    {Check::ArithmeticOnText, "arithmetic-on-text", Severity::Warning, true,
     "a date, a name, a UID or a code where a number is read"},
    {Check::NoText, "no-text", Severity::Warning, true,
     "the text of an element in which rules see none, such as a number of VR US"},
    // Tags and values.
    {Check::OddTag, "odd-tag", Severity::Warning, true, "a tag that is not read as it is written"},
    {Check::TwoFieldSeq, "two-field-seq", Severity::Warning, true, "SEQ with a tag alone: it leads into no sequence"},
    {Check::NoSequence, "no-sequence", Severity::Warning, true, "a path through an element that is no sequence"},
    {Check::UnknownTag, "unknown-tag", Severity::Warning, true, "a tag that the data dictionary does not know"},
    {Check::HeaderGroup, "header-group", Severity::Warning, true,
     "a tag of groups 0000 and 0002, which are no part of a dataset"},
    {Check::CharacterSet, "character-set", Severity::Warning, true, "a write to Specific Character Set"},
    {Check::InstanceUid, "instance-uid", Severity::Warning, true, "a write to SOP Instance UID"},
    {Check::Identity, "identity", Severity::Warning, true,
     "a write that takes or mixes up what identifies an object, its series, study or patient"},
    {Check::Pixels, "pixels", Severity::Warning, true, "a write to the pixels, or to what tells how to read them"},
    {Check::ValueTooLong, "value-too-long", Severity::Warning, true, "a value longer than its target's VR allows"},
    {Check::ValueForm, "value-form", Severity::Warning, true, "a value that its target's VR cannot hold"},
    {Check::VrMismatch, "vr-mismatch", Severity::Warning, true, "a value of another kind than its target's VR"},
    {Check::NonAscii, "non-ascii", Severity::Warning, true, "a literal with letters beyond ASCII"},
    {Check::CaseChange, "case-change", Severity::Warning, false,
     "a change of case in a text that may have letters beyond ASCII"},
    {Check::NoEffect, "no-effect", Severity::Warning, true,
     "a rule that changes nothing: its own value, deleted again, the same rule again"},
    {Check::Overwritten, "overwritten", Severity::Warning, true,
     "a write that a later rule overwrites or deletes unread"},
    {Check::ReadAfterDelete, "read-after-delete", Severity::Warning, true,
     "a read of what an earlier rule has deleted"},
    // Variables.
    {Check::SecondWrite, "second-write", Severity::Warning, true, "a second write to a variable: the first one wins"},
    {Check::UnsetVariable, "unset-variable", Severity::Warning, true, "a read of a variable that nothing has set"},
    {Check::UnusedVariable, "unused-variable", Severity::Warning, true, "a variable that nothing reads"},
    // Files.
    {Check::EmptyFile, "empty-file", Severity::Warning, true, "a file without any rule"},
    {Check::TitleTooLong, "title-too-long", Severity::Warning, true, "a file name that no AE title matches"},
    {Check::OddFileName, "odd-file-name", Severity::Warning, true,
     "a file name that serves one AE title, and seems to mean another thing"},
    {Check::FileNotRead, "file-not-read", Severity::Warning, true,
     "an entry of the mappings folder that the engine passes over"},
    {Check::OutboundInbound, "outbound-inbound", Severity::Warning, false,
     "X.out.map: it serves the inbound AE title \"X.out\" as well"},
};

constexpr std::size_t kCheckCount = std::size(kChecks);

constexpr bool areChecksInOrder()
{
    for (std::size_t i = 0; i < kCheckCount; ++i) {
        if (static_cast<std::size_t>(kChecks[i].check) != i) return false;
    }
    return true;
}
static_assert(areChecksInOrder());

constexpr const CheckInfo& infoOf(Check check)
{
    return kChecks[static_cast<std::size_t>(check)];
}

/// Which warnings are wanted. Errors always are.
class CheckSwitches {
public:
    CheckSwitches();

    /// @param text what follows -W: a warning's name, "all", or one of them after "no-".
    /// @return false when there is no such warning.
    bool set(std::string_view text);

    bool isOn(Check check) const { return isOn_[static_cast<std::size_t>(check)]; }

private:
    std::bitset<kCheckCount> isOn_;
};

/// One thing found. It refers to the file that it was found in.
struct Finding {
    Check check;
    const RuleFile* file = nullptr; ///< null for an entry that is not read
    const RuleLine* line = nullptr; ///< null for the file as a whole
    kxmap::Span span;               ///< in the line's `text`
    std::string message;
    std::string hint;              ///< what to write instead; may be empty
    std::filesystem::path entry{}; ///< what `file` is null for

    const std::filesystem::path& path() const { return file == nullptr ? entry : file->path; }
};

/// Collects findings that are wanted.
class Findings {
public:
    explicit Findings(const CheckSwitches& switches) : switches_(switches) {}

    void add(Finding finding)
    {
        if (switches_.isOn(finding.check)) found_.push_back(std::move(finding));
    }

    /// @return all, in the order of the files, which lie in one array; within a file by line and column, those of the
    ///         whole file first.
    std::vector<Finding> take();

private:
    CheckSwitches switches_;
    std::vector<Finding> found_;
};

/// A line under the eye of a check.
struct Site {
    const RuleFile& file;
    const RuleLine& line;
    Findings& findings;

    void report(Check check, kxmap::Span span, std::string message, std::string hint = {}) const
    {
        findings.add({check, &file, &line, span, std::move(message), std::move(hint)});
    }
    /// @param span in the right side.
    void reportRight(Check check, kxmap::Span span, std::string message, std::string hint = {}) const
    {
        const std::size_t offset = line.rightBegin();
        report(check, {span.begin + offset, span.end + offset}, std::move(message), std::move(hint));
    }
    /// @return where a node of the right side stands, in the right side.
    kxmap::Span spanOf(const Expression& node) const;
};

// What looks at one line; each in its own file.
void lintError(const Site& site);     // a bad line, and what to write instead
void lintText(const Site& site);      // the bytes of any line
void lintLiterals(const Site& site);  // the texts of a right side
void lintRightSide(const Site& site); // these and the arguments of calls, for a right side without a rule
void lintTarget(const Site& site);    // how the left side of a rule is written

/// The place of a file in a mappings folder; it says with which others it is applied.
enum class Stage { Pre, Title, Post, OutboundPre, OutboundTitle, OutboundPost, Alone };

/// Looks at the variables of files, across them where one is applied after another.
/// @param stages one for each file.
void lintVariables(std::span<const RuleFile> files, std::span<const Stage> stages, Findings& findings);

/// Looks at what rules do, each with what is known of those before it.
/// @param stages one for each file.
void lintFlow(std::span<const RuleFile> files, std::span<const Stage> stages, Findings& findings);

/// Looks at what the names and places of a mappings folder's entries mean.
/// @return the stage of each file.
std::vector<Stage> lintFolder(const std::filesystem::path& folder, std::span<const RuleFile> files, Findings& findings);

/// @return all that is found in files, each taken for itself.
std::vector<Finding> lintAlone(std::span<const RuleFile> files, const CheckSwitches& switches);

/// @return all that is found in the files of a mappings folder, which mappingFilesOf() lists.
std::vector<Finding> lintTogether(const std::filesystem::path& folder, std::span<const RuleFile> files,
                                  const CheckSwitches& switches);

} // namespace kxtool
