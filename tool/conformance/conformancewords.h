// SPDX-License-Identifier: BSD-3-Clause
// Expressions in words: what a rule gives its target, and when. Variables and custom fields are replaced by what they
// were set to.
#pragma once

#include "tool/conformance/conformancecondition.h"

#include "kxmap.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kxtool {

/// An element of the dataset, or in its sequence items.
struct ElementRef {
    std::vector<int> path; ///< group, element, item, ..., group, element; items from 0

    DcmTagKey tag() const;         ///< its own
    std::string key() const;       ///< "(0010,1002)[0].(0010,0021)": what it contains begins with it
    std::string tagText() const;   ///< "(0010,1002) item 1 > (0010,0021)"
    std::string name() const;      ///< "Other Patient IDs Sequence, item 1 > Issuer of Patient ID"
    std::string words() const;     ///< for a sentence: its name and tag, and where it is
    std::string itemWords() const; ///< of the item it is in; empty for the dataset's own elements
    bool isKnown() const;          ///< to the data dictionary: can be made
    bool isWholeNumber() const;    ///< by the data dictionary; one, and seen as text
};

/// What earlier rules of the same run have written, rule by rule.
class History {
public:
    struct Source {
        std::size_t moment; ///< the number of the rule in the run
        std::string place;  ///< "pre.map:12"
        const Expression* expression;
    };

    /// @param moment the number of its first rule: plain variables from before are gone.
    void beginFile(std::size_t moment) { fileBegins_.push_back(moment); }
    void addWrite(const ElementRef& element, Source source) { writes_[element.key()].push_back(std::move(source)); }
    void addVariable(const std::string& name, Source source) { variables_[name].push_back(std::move(source)); }
    void addField(const std::string& name, Source source) { fields_[name].push_back(std::move(source)); }

    /// @return the rules that may have written a variable by a moment, in their order.
    std::vector<const Source*> variable(const std::string& name, std::size_t moment) const;
    /// @return the rule that a custom field has its value from; null for none.
    const Source* field(const std::string& name, std::size_t moment) const;

    /// @return behind an element's name, which of its states is meant: empty for the present one.
    std::string stateOf(const ElementRef& element, std::size_t moment) const;

private:
    std::map<std::string, std::vector<Source>> writes_, variables_, fields_;
    std::vector<std::size_t> fileBegins_;
};

/// One thing that a rule may do.
struct RuleOutcome {
    Condition when;
    std::optional<std::string> value; ///< in words; none: the target is removed
    bool isTarget = false;            ///< the target's own value, which so stays
    std::string told = {};            ///< the `yes` of a fact of `when` that `value` tells already
    // What is known of a value, for the question whether the target can hold it:
    std::optional<std::string> literal = {}; ///< it is this text
    std::optional<ElementRef> source = {};   ///< it is this element
    bool isText = false;                     ///< of a source: its text alone, since a variable was between
    bool isNumber = false;
};

/// Words for one rule.
class Words {
public:
    /// @param now the rule's number in the run.
    Words(const History& history, ElementRef target, std::size_t now);

    /// @return what may come of a right side; only what excludes each other.
    std::vector<RuleOutcome> outcomes(const Expression& root);

    /// @return whether the rule was too long to be put into words; what was said of it then is worth nothing.
    bool hasGivenUp() const { return steps_ > kMostSteps; }

    /// @return that the target is there.
    Condition targetIsPresent() const;

private:
    static constexpr int kMostSteps = 20000;

    struct Resolved {
        const Expression* expression;
        std::size_t moment;
        std::string unresolved; // in words, when there is no expression
        bool isText = false;    // a variable or a custom field was between, and these hold texts
    };

    bool isTooMuch() { return ++steps_ > kMostSteps; }

    const Expression& folded(const Expression& expression);
    bool hasNoText(const Expression& expression, std::size_t moment);

    // Below, `moment` is the rule as which an expression was evaluated.
    Resolved resolve(const Expression& expression, std::size_t moment);
    Resolved resolveVariable(const std::string& name, std::size_t moment);
    Resolved resolveField(const std::string& name, std::size_t moment);

    void addOutcomes(const Expression& expression, std::size_t moment, const Condition& known,
                     std::vector<RuleOutcome>& out);
    void addIf(const Expression& call, std::size_t moment, const Condition& known, std::vector<RuleOutcome>& out);
    void addOr(const Expression& call, std::size_t moment, const Condition& known, std::vector<RuleOutcome>& out);
    void addTranslate(const Expression& call, std::size_t moment, const Condition& known,
                      std::vector<RuleOutcome>& out);

    Condition isPresent(const Expression& expression, std::size_t moment);
    Condition isCallPresent(const Expression& call, std::size_t moment);
    Condition isPieceThere(const Expression& call, std::size_t moment);
    Condition hasValue(const Expression& expression, std::size_t moment);
    Condition isNumber(const Expression& expression, std::size_t moment);
    Condition areEqual(const Expression& a, const Expression& b, std::size_t moment);
    Condition isTranslated(const Expression& call, std::size_t moment);
    Condition isTranslationPresent(const Expression& call, std::size_t moment);
    Condition about(const Expression& expression, std::size_t moment, const std::string& yes, const std::string& no,
                    const std::string& rivals = {});
    Condition elementIs(const ElementRef& element, std::size_t moment, bool withValue) const;

    std::string value(const Expression& expression, std::size_t moment);
    std::string callValue(const Expression& call, std::size_t moment);
    std::string codeValue(const Expression& call, std::size_t moment);
    std::string pieceValue(const Expression& call, std::size_t moment);
    std::string operand(const Expression& expression, std::size_t moment);
    std::string pattern(const Expression& expression, std::size_t moment);
    std::string table(const Expression& call, std::size_t moment, const char* separator);
    std::string elementWords(const ElementRef& element, std::size_t moment, const char* forTarget) const;
    bool isTarget(const Expression& expression, std::size_t moment);

    const History& history_;
    ElementRef target_;
    std::size_t now_;
    Condition known_ = Condition::always(true);                          // what holds where a value is put into words
    std::map<const Expression*, std::unique_ptr<Expression>> constants_; // calls, and what they always come to
    int steps_ = 0; // bounds what variables made of variables, and conditions in conditions, can grow to
};

/// @return the element that a tag reference or SEQ names by texts alone.
std::optional<ElementRef> elementOf(const Expression& expression);

/// @return a text in double quotes, fit to be shown.
std::string quotedText(const char* text);

} // namespace kxtool
