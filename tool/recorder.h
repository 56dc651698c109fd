// SPDX-License-Identifier: BSD-3-Clause
// Applies rules as the engine does, one by one, and notes what each did: to show it, to report it, and to keep what was
// there before.
#pragma once

#include "tool/rulefile.h"

#include "kxmap.h"

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
    NoItem,    ///< the path through sequence items leads nowhere
    NoChange,  ///< written, and as it was before; for a variable: it was set already, the first write wins
};

/// @return the word for an effect: "set", "created", "deleted", "was absent", "skipped as unknown", "no such item",
///         "no change".
const char* effectName(Effect effect);

/// Compares two elements to the byte, but for trailing padding: VR and value, and all that sequences hold. DCMTK's own
/// `compare` lets leading blanks, and texts of one length, pass for the same.
/// @param a null where there is none; and so is b.
bool isSameElement(DcmElement* a, DcmElement* b);

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
    std::optional<std::string> value; ///< what the right side came to; none for NULL
    Effect effect = Effect::NoChange;
    std::optional<std::string> before; ///< the target's text; none when it was not there
    std::optional<std::string> after;
    std::string vr; ///< of the element after it, or before it when it is gone; empty for others
    std::vector<std::string>
        messages;        ///< "Coercion: ..." lines of the built-ins, from both channels, without line feed
    std::string failure; ///< of a built-in that threw; the rule then wrote nothing
};

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

    /// Applies the rules and records; once. The text of an element that is no text is shown in words ("<4 bytes>", "<2
    /// items>"), numbers as numbers; a long text is kept whole. Standard error is caught meanwhile.
    /// A built-in's std::logic_error ends the run of rules as it does in the engine: failure() says so.
    /// @param keepsOriginals whether to copy the dataset's elements before they are changed, for originals().
    void run(const RulesInOrder& files, MappingSession& session, bool keepsOriginals);

    const std::vector<Step>& steps() const { return steps_; }

    /// @return the places that differ from before: elements in the order of their names, then custom fields, then
    ///         variables. What changed and was changed back is none.
    const std::vector<Change>& changes() const { return changes_; }

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
        std::unique_ptr<DcmElement> original; // the top-level element, when it is wanted
    };

    void apply(const RuleFile& file, const RuleLine& rule, MessageTap& tap);
    void evaluateAndAssign(const RuleLine& rule, Step& step);
    Before lookAt(const Target& target) const;
    static Effect effectOf(const Target& target, const Step& step, bool isUntouched);
    void keep(const Target& target, Before before);
    bool wasMadeByARule(const Place& place) const;
    void collectChanges();

    MappingSession* session_ = nullptr;
    bool keepsOriginals_ = false;
    std::vector<Step> steps_;
    std::vector<Change> changes_;
    std::map<Place, Tracked> tracked_;
    std::map<DcmTagKey, std::unique_ptr<DcmElement>> originals_;
    std::string failure_;
};

} // namespace kxtool
