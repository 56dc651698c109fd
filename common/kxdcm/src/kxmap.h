// SPDX-License-Identifier: BSD-3-Clause
// The coercion module's one public header, in reading order: texts and errors, values, the session, built-ins,
// expressions, assignment targets, rule lines, mapping files, mapping sets, the syntax check.
//
// Threads: applying needs no lock. Any number of threads may apply one set or their own, each to a session and a
// dataset of its own: "rnd" without a seed advances `gseed` atomically, all else is read only. Parsing (loading, the
// syntax check, applyStatic) appends to `errorlogs` without a lock: one thread at a time, while others may apply. All
// of it may be used by constructors and destructors of static objects, too.
//
// Failures: no function here throws but for exhausted memory (std::bad_alloc), and the two that say so: "toUpper" and
// "toLower", and the tokenizer. Whatever passes, nothing of the module's own leaks and every object stays usable.
#pragma once

#define KXDCM_VERSION_MAJOR 0
#define KXDCM_VERSION_MINOR 1
#define KXDCM_VERSION_PATCH 0
#define KXDCM_VERSION_STRING "0.1.0"

#include "KXCustomFields.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/oflog/oflog.h>

#include <cstddef>
#include <cstdio>
#include <iosfwd>
#include <list>
#include <map>
#include <string>

class Expression;

/// Copies a text into a new character array of its length plus two bytes.
/// @param text NUL-terminated bytes, or null.
/// @return the copy, the caller's to release with delete[]; null for null.
char* newdup(const char* text);

/// The parse errors so far, one after the other, each with a line feed appended. Grows only through error(); emptied by
/// checkSyntaxInner(). A server that reloads often empties it between loads.
extern std::string errorlogs;

/// What checkSyntaxInner() returns for a good file: the empty text. Never released by anyone.
extern char errorMsgEmpty[1];

/// The module's logger, "orvo.qdcm.kxmap". Only the levels debug and error are used.
extern OFLogger logger;

/// Reports one parse error: logs it at error level and appends it and a line feed to `errorlogs`.
void error(std::string msg);

/// The result of an evaluation: a text, or an element that stands for its text. A null `Value*` is NULL: absent, false.
///
/// Every value counts its holders, from 1. A function that returns a `Value*` hands one reference to its caller. Who
/// keeps a borrowed value raises `refCount`; who is done lowers it and deletes the value when it reaches 0.
class Value {
public:
    bool made;    ///< true once the text has been computed
    int refCount; ///< the number of holders
    char* str;    ///< the text, owned, an array; null until made, and for good where there is none

    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;
    virtual ~Value();

    virtual void makeString(); ///< Computes `str`; called once, by getString().

    /// Writes this value into an element.
    /// @param item holds `target`, or has refused it; may come to hold another element in its place. Not null.
    /// @param target not null; may be destroyed by the call.
    virtual void assignTo(DcmItem* item, DcmElement* target) const = 0;

    /// @return the text, computed at the first call and the same ever after; the value's own. Null only for a TagValue
    ///         without an element.
    virtual char* getString();

    /// @return the element that this value stands for; null when it is a mere text.
    virtual operator DcmElement*() const;

protected:
    Value();
};

/// A text of its own.
class StringValue : public Value {
public:
    /// @param s bytes to copy; null gives the empty text.
    StringValue(const char* s);

    /// Puts the text with `DcmElement::putString`, which splits it at "\" as the target's VR has it. A text that the VR
    /// cannot take leaves the element as DCMTK leaves it; nothing is reported.
    void assignTo(DcmItem* item, DcmElement* target) const override;
};

/// An element of the dataset, or of an item in it.
class TagValue : public Value {
public:
    DcmElement* element; ///< not owned; the value must not be asked for its text once the element is gone

    TagValue(DcmElement* source);

    /// Takes a snapshot of `DcmElement::getString`: all values with their "\", or the empty text where the VR has none.
    void makeString() override;

    /// Same VR: `target` is replaced by an exact copy of the element, binary VRs included. Other VR: the text is put.
    /// The element itself as target, and a null element, change nothing.
    void assignTo(DcmItem* item, DcmElement* target) const override;

    operator DcmElement*() const override;
};

/// The state of one run of mappings over one dataset. The caller makes it, points it at the dataset, uses it for the
/// pre, AE title and post mappings, and lets it go.
struct MappingSession {
    DcmDataset* dataset = nullptr; ///< not owned; null reads as an empty dataset, and writes to it go nowhere
    KXCustomFields customFields;   ///< what "USER(name)" reads and writes
    std::map<std::string, std::string> variables;   ///< temporary variables; emptied when a mapping begins
    std::map<std::string, std::string> atVariables; ///< those written with "@", without it; they outlive a mapping

    /// Reads a temporary variable; a leading "@" reads those that outlive one mapping.
    /// @param name not null, bytes as the rule has them.
    /// @return the session's own text, valid until that variable is cleared; null when unset. Logs nothing.
    const char* getVariable(const char* name) const;

    /// Sets a temporary variable that is not yet set, or clears one.
    /// The first write wins: a later text is dropped until a null has cleared the name. A leading "@" writes both maps.
    /// @param name not null, "@" included.
    /// @param value copied; null clears.
    void setVariable(const char* name, const char* value);
};

// Built-in functions --------------------------------------------------------------------------------------------------

/// Computes a call from its unevaluated arguments, whose number has passed the arity rule.
/// @return a reference that the caller owns, or null for NULL. Problems are reported as text and end in NULL.
using Evaluator = Value*(MappingSession&, std::list<Expression*>&);

/// Says whether a call may have `count` arguments.
using ArityRule = bool(int count);

/// One built-in function of the language.
struct FunctionDef {
    const char* name;  ///< as rules write it, case-sensitive; "" is the tag reference and the grouping
    const char* alias; ///< an operator-like second name for documentation, or null; the parser never looks at it
    Value* (*getValue)(MappingSession&, std::list<Expression*>&);
    bool (*numParamsOK)(int count);
};

/// Every function that a rule can name, in the order of look-up; the last entry is null.
extern const FunctionDef* const funcList[30];

extern const FunctionDef f_equals, f_not, f_or, f_and, f_if, f_concat, f_split, f_contains, f_indexof, f_strlen,
    f_substr, f_toUpper, f_toLower, f_sub, f_add, f_mul, f_mod, f_div, f_dicomAge, f_rnd, f_between, f_codenumber,
    f_codestring, f_NULL, f_root, f_empty, f_seq, f_translate, f_var, f_user;

/// `toUpper_getValue` and `toLower_getValue` throw std::logic_error("basic_string::_M_construct null not valid") for a
/// value without a text (a TagValue without an element). All others let only std::bad_alloc pass.
Evaluator equals_getValue, not_getValue, or_getValue, and_getValue, if_getValue, concat_getValue, split_getValue,
    contains_getValue, indexof_getValue, strlen_getValue, substr_getValue, toUpper_getValue, toLower_getValue,
    sub_getValue, add_getValue, mul_getValue, mod_getValue, div_getValue, dicomAge_getValue, rnd_getValue,
    between_getValue, codenumber_getValue, codestring_getValue, NULL_getValue, root_getValue, empty_getValue,
    seq_getValue, translate_getValue, var_getValue, user_getValue;

ArityRule c0_numParamsOK, c1_numParamsOK, c2_numParamsOK, c3_numParamsOK, c4_numParamsOK, c2p_numParamsOK,
    c3xplus2_numParamsOK, c2x_numParamsOK, substr_numParamsOK, rnd_numParamsOK, codestring_numParamsOK,
    empty_numParamsOK, root_numParamsOK;

/// The state of "rnd" without a seed text: 0 at program start, so that a server sets it, while nobody
/// applies; advanced by POSIX `rand_r`.
extern unsigned int gseed;

/// An evaluator's cursor over its arguments: evaluates each when it is first asked for, and holds what came of it.
class SArgs {
public:
    MappingSession& session;
    std::list<Expression*>& params; ///< not owned
    std::list<Value*> values;       ///< one reference each, null for NULL, in the order of evaluation
    std::list<Expression*>::iterator currentExpression;
    std::list<Value*>::iterator currentValue; ///< the end while the current argument has no value yet

    SArgs(MappingSession& run, std::list<Expression*>& arguments)
        : session(run), params(arguments), currentExpression(params.begin()), currentValue(values.end())
    {
    }
    SArgs(const SArgs&) = delete;
    SArgs& operator=(const SArgs&) = delete;
    ~SArgs();

    /// @return the current argument's value, borrowed until this cursor goes; null for NULL and past the last one.
    Value* GetAt();

    /// Moves on to the next argument, evaluated or not.
    void Next()
    {
        if (currentExpression != params.end()) ++currentExpression;
        if (currentValue != values.end()) ++currentValue;
    }
};

/// A node of a parsed right-hand side: a literal (`text`), a call (`func` and `params`), or empty (neither).
class Expression {
public:
    char* text;                    ///< the literal, decoded; owned, an array
    const FunctionDef* func;       ///< the called built-in; never owned
    std::list<Expression*> params; ///< the arguments, owned

    Expression();
    Expression(const Expression&) = delete;
    Expression& operator=(const Expression&) = delete;
    ~Expression();

    /// Parses the right-hand side of one rule under the root wrapper "assign_to_lvalue".
    /// @param line bytes after the rule's first "="; read only.
    /// @return a tree that the caller owns; null after the first error was reported through error().
    static Expression* readCfgLine(const char* line);

    /// Fills this node, which must be fresh.
    /// @param s writable and NUL-terminated; changed in place.
    /// @return null for success, else a message that the caller releases with delete[]. Nesting beyond 1024 calls,
    ///         which no line of a mapping file can reach, is refused with a message of its own.
    char* parse(char* s);

    /// Parses an argument list into `params` and checks their number against `func`, which is set. @return as parse().
    char* parseParamList(char* s);

    /// Steps over one token: a byte, a quoted text, or a balanced bracket group.
    /// @return the position after the token that starts at `p`.
    /// @throws const char* "bracket mismatch" at a ")" outside quotes and brackets.
    char* parserStep(char* p);

    /// Evaluates the tree. @return a reference that the caller owns; null for NULL.
    Value* getValue(MappingSession& session);

    void print(); ///< Writes the tree to standard output, as operator<< does, and flushes.
};

/// Writes `name(argument,argument)` for a call, `"text"` without escapes for a literal, nothing for an empty node.
std::ostream& operator<<(std::ostream& out, const Expression& expression);

/// The left side of a rule.
class LVObject {
public:
    virtual ~LVObject();
    /// Writes a value to the target. Nothing is reported; DCMTK's refusals leave the target as DCMTK left it.
    /// @param value borrowed; null for NULL, which deletes or clears the target.
    virtual void assignValue(MappingSession& session, Value* value) = 0;
};

/// "(gggg,eeee)": an element of the dataset itself.
class LVDicomTag : public LVObject {
public:
    DcmTag tag;

    LVDicomTag(const DcmTag& target);
    void assignValue(MappingSession& session, Value* value) override;

    /// Writes into `item`, on its own level: replaces, creates or (for null) deletes `tag`. A tag that neither the data
    /// dictionary nor the server's private block knows, and an item tag, is skipped.
    void assignValueInner(DcmItem& item, Value* value);
};

/// "SEQ(g1,e1,i1,...,gN,eN)": an element of a sequence item. Items that are not there are never made.
class LVSeqDicomTag : public LVDicomTag {
public:
    std::list<int> path; ///< group, element, item number, ..., group, element

    LVSeqDicomTag(const DcmTag& target, const std::list<int>& way);
    void assignValue(MappingSession& session, Value* value) override;
};

/// "USER(name)": a custom field of the study record.
class LVCustomField : public LVObject {
public:
    std::string name;

    LVCustomField(const std::string& field);
    void assignValue(MappingSession& session, Value* value) override;
};

/// "$(name)": a temporary variable, "@" included in the name.
class LVTempVar : public LVObject {
public:
    std::string name;

    LVTempVar(const std::string& variable);
    void assignValue(MappingSession& session, Value* value) override;
};

/// Parses a left value, blanks and all. @return a target that the caller owns; null for a bad one, reported through
/// error() where the form is known.
LVObject* parseLV(std::string& text);

/// Says whether the text from `start` on is a name and the terminator, and nothing after it. A name is one or more
/// ASCII letters and digits, with an "@" before them or not.
bool checkName(const std::string& text, unsigned long start, char terminator);

/// Walks from `item` through sequences and their items to the item that holds the final tag.
/// @param path group, element, item number (from 0; less is 0), ..., final group and element. What was walked is taken
///        off its front.
/// @return an item of the dataset; null when a sequence or an item is missing.
DcmItem* getParentItem(std::list<int>& path, DcmItem* item);

/// One rule line, parsed.
class Assignment {
public:
    LVObject* lvalue;       ///< owned
    Expression* expression; ///< owned

    Assignment();
    Assignment(const Assignment&) = delete;
    Assignment& operator=(const Assignment&) = delete;
    ~Assignment();

    /// Reads one line, split at its first "="; what the object held is discarded first, if there is a "=".
    /// @return true when both sides parsed. After false the left side may be held.
    bool readCfgLine(const char* line);

    /// Evaluates the right side and writes it to the left side, NULL too.
    /// @return 0; 1 when a side is missing, and then nothing was done.
    int apply(MappingSession& session);
};

/// One mapping file, parsed: its good lines in their order. A server may rename it between two calls.
class Mapping {
public:
    std::list<Assignment*> assignments; ///< owned
    char name[128];                     ///< an AE title, "pre" or "post"; longer ones are cut to 127 bytes

    /// Reads to the end of an open file, which the caller closes. Lines come in pieces of at most 2039 bytes; bad ones
    /// are dropped, their errors reported through error().
    Mapping(FILE* file, const char* name);

    Mapping(const char* text, const char* name); ///< Reads a text in memory, whose lines may be of any length.
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;
    ~Mapping();

    /// Empties the session's plain variables, then applies every rule in order.
    /// @return 0
    int apply(MappingSession& session);

    /// Reads and applies a file line by line and keeps nothing of it.
    /// @param written receives the left value of every rule applied, at its end and the caller's to delete; may be
    ///        null.
    /// @return false when the file cannot be opened; the session is untouched then.
    static bool applyStatic(const char* fileName, MappingSession& session, std::list<LVObject*>* written);

private:
    explicit Mapping(const char* name);
    void addLine(const char* line);
};

/// Which of the two global mappings.
enum GlobalMappingRule : int { GlobalPre = 0, GlobalPost = 1 };

/// Every mapping of one direction, loaded once from the directory "mappings" below the environment variable DICOM_VAR.
/// Files that cannot be opened, and whatever is not a regular file, are passed over in silence.
class MappingSet {
public:
    Mapping* pre;                 ///< owned; null when there is none
    Mapping* post;                ///< owned; null when there is none
    std::list<Mapping*> mappings; ///< owned, none null; as loaded, but a server may edit it between two calls

    /// Loads the inbound side: every "<AE title>.map", "global/pre.map" and "global/post.map".
    MappingSet();

    /// Loads the outbound side of one AE title: "<AE title>.out.map", whatever `outbound` says.
    /// @param outbound chooses "global/outpre.map" and "global/outpost.map" over "global/pre.map" and
    ///        "global/post.map".
    /// @param aeTitle null for no mapping by AE title.
    /// @param globals whether to load the global mappings.
    MappingSet(bool outbound, const char* aeTitle, bool globals);
    MappingSet(const MappingSet&) = delete;
    MappingSet& operator=(const MappingSet&) = delete;
    ~MappingSet();

    /// Applies the first mapping in the list, as it is now, that is named exactly `aeTitle`, which is not null.
    /// @return 0, whether there was one or not.
    int apply(const char* aeTitle, MappingSession& session);

    /// Applies the pre or the post mapping. @return as apply().
    int applyGlobal(GlobalMappingRule rule, MappingSession& session);

    /// Reads one global mapping.
    /// @param directory the mappings directory with its "/".
    /// @param path receives the file's path.
    /// @return the caller's; null when the file cannot be opened.
    static Mapping* readGlobal(const std::string& directory, const std::string& name, bool outbound, std::string& path);

private:
    explicit MappingSet(std::nullptr_t empty);
    void load(const std::string& path, const char* name);
};

/// Checks a mapping file line by line, up to the first bad one, and applies nothing. Empties `errorlogs` first.
/// @return `errorMsgEmpty` for a good file; else a message that the caller releases with delete[]: the bad line and
///         what was said of it, cut to 2047 bytes, or that the file could not be opened.
char* checkSyntaxInner(const char* fileName);
