// SPDX-License-Identifier: BSD-3-Clause
// Applies rules as the engine does, one by one, and records what each did, for displays, reports and the Original
// Attributes Sequence.
#pragma once

#include "tool/dicom/elements.h"
#include "tool/record/lettercase.h"
#include "tool/rules/rulefile.h"

#include "kxmap.h"

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kxtool {

/// What one rule did to its target.
enum class Effect {
    Set,       ///< an element that was there got another value; a field or variable another text
    Created,   ///< an element, field or variable that was not there is there now
    Deleted,   ///< an element, field or variable that was there is gone
    WasAbsent, ///< NULL, and there was nothing to delete
    Unknown,   ///< the tag is not in the data dictionary: the engine skipped it
    Refused,   ///< the server's private block is another creator's in this dataset: the engine wrote nothing
    NoItem,    ///< the path through sequence items leads nowhere
    NoChange,  ///< written, and as it was before; for a variable: it was set already, the first write wins
};

/// @return the word for an effect: "set", "created", "deleted", "was absent", "skipped as unknown", "refused",
///         "no such item", "no change".
const char* effectName(Effect effect);

/// Where a rule writes.
struct Place {
    enum class Kind { Element, CustomField, Variable };
    Kind kind = Kind::Element;
    std::string name;   ///< "(0010,0010)"; "(0040,0275)[0].(0040,0007)", items from 0; "USER(name)"; "$(name)"
    DcmTagKey tag;      ///< of elements: the element itself
    DcmTagKey topLevel; ///< of elements: the dataset's own element that holds it, or the same tag
    bool operator<(const Place& other) const { return std::tie(kind, name) < std::tie(other.kind, other.name); }
};

/// One rule, applied.
struct Step {
    const RuleFile* file = nullptr;
    const RuleLine* rule = nullptr;
    Place place;
    std::size_t number = 0;           ///< in the run, from 0
    std::optional<std::string> value; ///< what the right side came to, as the target takes it; none for NULL
    std::string unseen;               ///< what the value's element holds, where rules see no text in it: "128"
    Effect effect = Effect::NoChange;
    std::optional<std::string> before; ///< the target's text; none when it was not there
    std::optional<std::string> after;
    std::string vr; ///< of the element after it, or before it when it is gone; empty for others
    std::vector<std::string>
        messages;                 ///< "Coercion: ..." lines of the built-ins, from both channels, without line feed
    std::string failure;          ///< of a built-in that threw; the rule then wrote nothing
    std::vector<Recased> recased; ///< by "toUpper" and "toLower" in the rule
};

/// What an expression came to.
struct Evaluation {
    std::optional<std::string> value; ///< as rules see it; none for NULL
    std::string unseen;               ///< what the value's element holds, where rules see no text in it: "128"
    std::vector<std::string> messages;
    std::string failure; ///< of a built-in that threw
};

/// Evaluates an expression as a rule would, and changes nothing but variables of the built-ins' own, as `gseed`.
Evaluation evaluate(Expression& expression, MappingSession& session);

/// One place that is not as it was before the first rule.
struct Change {
    Place place;
    std::string vr;
    std::optional<std::string> before;
    std::optional<std::string> after;
    std::vector<const Step*> steps; ///< those that changed it, in order
    /// '+' added, '-' deleted, '~' changed
    char sign() const { return !before ? '+' : !after ? '-' : '~'; }
};

/// The mapping files of one run in their order, each with its own plain variables, as the engine applies them.
using RulesInOrder = std::vector<const RuleFile*>;

class MessageTap;

/// What became of one dataset. It refers to the rule files that it was made with.
class Recording {
public:
    Recording();
    ~Recording();
    Recording(Recording&&) noexcept;
    Recording& operator=(Recording&&) noexcept;

    /// Starts anew.
    /// @param session applied to by every rule from now on.
    void begin(MappingSession& session);

    /// Applies one more rule and records it; none after a failure. Numbers are shown as numbers, elements that are no
    /// text in words ("<4 bytes>", "<2 items>"); a long text is kept whole. Standard error is caught meanwhile.
    /// A built-in's std::logic_error ends the run of rules as it does in the engine: failure() says so.
    void apply(const RuleFile& file, const RuleLine& rule);

    /// Begins, and applies all rules of all files, plain variables emptied before each as the engine does.
    void run(const RulesInOrder& files, MappingSession& session);

    /// @return in their order; they stay where they are while rules are added.
    const std::deque<Step>& steps() const { return steps_; }

    /// @param begin the number of a step: only places that it or a later one changed.
    /// @return the places that differ from before the first rule, elements by what a reader of the file would find in
    ///         them: elements in the order of their names, then custom fields, then variables. What changed and was
    ///         changed back is none.
    std::vector<Change> changes(std::size_t begin = 0) const;

    /// @return empty, or why the run ended early.
    const std::string& failure() const { return failure_; }

    /// @return the dataset's own elements as they were before the first rule that changed them or something in them;
    ///         null for one that was not there.
    const std::map<DcmTagKey, std::unique_ptr<DcmElement>>& originals() const { return originals_; }

private:
    class Target;
    struct Tracked;
    struct Before {
        std::unique_ptr<DcmElement> element;
        std::optional<std::string> text;
        std::unique_ptr<DcmElement> original; // the top-level element, unless it is kept already
    };

    void apply(const RuleFile& file, const RuleLine& rule, MessageTap& tap);
    void execute(Step& step, MessageTap& tap);
    void evaluateAndAssign(const RuleLine& rule, Step& step);
    static void lookAfter(Step& step, const Target& target, DcmElement* before);
    Before lookAt(const Target& target) const;
    static Effect effectOf(const Target& target, const Step& step, bool isUntouched);
    void keep(const Target& target, Before before);
    std::optional<Change> changeAt(const Place& place) const;
    std::vector<std::size_t> stepsOf(const Place& place, const Tracked& tracked) const;

    MappingSession* session_ = nullptr;
    std::deque<Step> steps_;
    std::map<Place, Tracked> tracked_;
    std::vector<std::pair<std::size_t, Place>> touched_; // by which step, in their order
    std::map<DcmTagKey, std::unique_ptr<DcmElement>> originals_;
    std::string failure_;
};

} // namespace kxtool
