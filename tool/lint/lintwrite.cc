// SPDX-License-Identifier: BSD-3-Clause
// What a rule may write, against the VR of its target: its form, its length, its letters.
#include "tool/console/utf8.h"
#include "tool/dicom/valuefaults.h"
#include "tool/lint/ruleview.h"
#include "tool/lint/vrtext.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <cctype>
#include <fmt/format.h>

namespace kxtool {
namespace {

/// An element that gets the rule's value.
struct Target {
    DcmTagKey key;
    DcmEVR vr;
    const Known& element; ///< what datasets have there

    std::string name() const { return shownTag(key); }
};

bool isAscii(std::string_view text)
{
    return std::ranges::none_of(text, [](unsigned char c) { return c >= 0x80; });
}

/// @return whether all of a value is one byte a character.
bool isPlainlyAscii(const Known& value)
{
    return (value.holds >> 0x80U).none();
}

/// @return whether datasets decide what the VR is.
bool isAmbiguous(DcmEVR vr)
{
    return vr == EVR_xs || vr == EVR_ox || vr == EVR_px || vr == EVR_lt || vr == EVR_up;
}

std::string hintForForm(const Expression& node, DcmEVR vr, std::string_view text)
{
    if (!isLiteral(node) && text == "true") return "a condition that holds is the text \"true\"";
    const bool hasLower = std::ranges::any_of(text, [](unsigned char c) { return std::islower(c) != 0; });
    return vr == EVR_CS && hasLower ? "write it in upper case" : "";
}

/// "Doe, Jane"
bool isNameWithComma(std::string_view text)
{
    const std::size_t comma = text.find(", ");
    return comma != std::string_view::npos && comma > 0 && text.find(", ", comma + 1) == std::string_view::npos &&
           text.find('^') == std::string_view::npos;
}

bool lintText(const RuleView& view, const Target& target, const Expression& node, const std::string& text)
{
    if (target.vr == EVR_SQ)
        return view.tell(Check::ValueForm, node,
                         fmt::format("{}: SQ holds items, which no text can make", target.name()));
    if (const auto fault = faultOf(target.vr, text)) {
        const bool isForm = fault->name == fault::kForm;
        return view.tell(isForm ? Check::ValueForm : Check::ValueTooLong, node,
                         fmt::format("{}: {}", target.name(), fault->text),
                         isForm ? hintForForm(node, target.vr, text) : "");
    }
    if (target.vr == EVR_PN && isLiteral(node) && isNameWithComma(text))
        return view.tell(Check::ValueForm, node,
                         fmt::format("{}: the parts of a name are parted by \"^\", and not by commas", target.name()),
                         "Family^Given");
    const auto count = static_cast<std::size_t>(std::ranges::count(text, '\\')) + 1;
    const auto most = count == 1 ? std::nullopt : mostValuesOf(target.key);
    return most && count > *most && holdsValues(target.vr) &&
           view.tell(
               Check::ValueForm, node,
               fmt::format("{} takes {} value{}, and this is {}", target.name(), *most, *most == 1 ? "" : "s", count));
}

/// @return a byte that a value certainly has and the VR's values never do.
std::optional<char> foreignByte(const Known& value, const Known& element)
{
    const Bytes foreign = value.holds & ~element.usual.may;
    for (std::size_t byte = 0; byte < foreign.size(); ++byte) {
        if (foreign.test(byte)) return static_cast<char>(byte);
    }
    return std::nullopt;
}

bool lacksUpperCase(const Known& value)
{
    static const Bytes upper = bytesOf("ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    static const Bytes lower = bytesOf("abcdefghijklmnopqrstuvwxyz");
    return (value.usual.may & upper).none() && (value.usual.may & lower).any();
}

bool lintKind(const RuleView& view, const Target& target, const Expression& node, const Known& value)
{
    const DcmEVR from = value.usual.vr;
    if (isTextless(from))
        return from != target.vr && target.vr != EVR_UNKNOWN && !isAmbiguous(from) && !isAmbiguous(target.vr) &&
               view.tell(Check::NoText, node,
                         fmt::format("{}: rules see no text in values of {}, so this writes an empty value",
                                     target.name(), DcmVR(from).getVRName()),
                         "such elements are copied into those of the same VR alone");
    if (!fits(from, target.vr))
        return view.tell(Check::VrMismatch, node,
                         fmt::format("{}: a value of {} is none of {}", target.name(), DcmVR(from).getVRName(),
                                     DcmVR(target.vr).getVRName()));
    if (const auto byte = foreignByte(value, target.element))
        return view.tell(Check::VrMismatch, node,
                         fmt::format("{}: this has a {}, which values of {} have not", target.name(),
                                     shownQuoted(std::string(1, *byte)), DcmVR(target.vr).getVRName()));
    if (target.vr == EVR_CS && lacksUpperCase(value))
        return view.tell(Check::VrMismatch, node, fmt::format("{}: CS has letters in upper case alone", target.name()),
                         "write toUpper(text)");
    return false;
}

/// @return whether a value is made of the target's own, which may be there to be mended.
bool readsTarget(const RuleView& view, const Expression& node)
{
    if (pathOf(node) == view.target) return true;
    return std::ranges::any_of(node.params, [&view](const Expression* one) { return readsTarget(view, *one); });
}

bool lintSize(const RuleView& view, const Target& target, const Expression& node, const Known& value)
{
    const std::size_t most = mostBytesOf(target.vr);
    if (value.holds.test('\\') && holdsValues(target.vr) && mostValuesOf(target.key) == 1)
        return view.tell(Check::ValueForm, node,
                         fmt::format("{} takes one value, and a backslash parts values", target.name()));
    const std::size_t least = std::max(value.least, readsTarget(view, node) ? 0 : value.usual.least);
    return most > 0 && least > most && !value.holds.test('\\') && isPlainlyAscii(value) &&
           view.tell(Check::ValueTooLong, node,
                     fmt::format("{}: this has {} bytes or more, and {} holds {}", target.name(), least,
                                 DcmVR(target.vr).getVRName(), most));
}

/// @return whether all that a value is made of decides nothing: texts, elements and what is computed of them.
bool isStraight(const Expression& node)
{
    constexpr Way kStraight[] = {Way::Brackets, Way::Tag,     Way::Path,   Way::Joined,
                                 Way::Part,     Way::Recased, Way::Counted};
    if (isLiteral(node)) return true;
    return std::ranges::find(kStraight, wayOf(node)) != std::end(kStraight) &&
           std::ranges::all_of(node.params, [](const auto* one) { return isStraight(*one); });
}

/// A dataset whose elements have values as their VRs demand.
class Sample : public Surroundings {
public:
    static constexpr std::size_t kCount = 3;

    explicit Sample(std::size_t number) : number_(number) {}

    Known element(const std::vector<int>& path) const override
    {
        struct Row {
            DcmEVR vr;
            const char* texts[kCount];
        };
        constexpr Row kRows[] = {{EVR_DA, {"20040229", "19991130", "20120101"}},
                                 {EVR_TM, {"101112", "235959.123456", "0930"}},
                                 {EVR_DT, {"20040229101112", "19991130235959.123456+0100", "20120101"}},
                                 {EVR_AS, {"042Y", "011M", "003D"}},
                                 {EVR_IS, {"1", "0", "512"}}};
        const DcmEVR vr = path.size() < 2 ? EVR_UNKNOWN : vrOf(tagOf(path));
        const auto* row = std::ranges::find(kRows, vr, &Row::vr);
        return row == std::end(kRows) ? Known() : Known::always(row->texts[number_]);
    }

private:
    std::size_t number_;
};

/// A value that is made of parts: where no sample makes a good one of them, hardly a dataset does.
bool lintSamples(const RuleView& view, const Target& target, const Expression& node)
{
    constexpr DcmEVR kFormed[] = {EVR_AS, EVR_DA, EVR_DS, EVR_DT, EVR_IS, EVR_TM};
    if (isRead(node) || std::ranges::find(kFormed, target.vr) == std::end(kFormed) || !isStraight(node)) return false;
    const bool mends = &node != &unwrapped(view.root()) && readsTarget(view, node); // a condition tells which values
    if (mends) return false;
    std::string shown;
    for (std::size_t number = 0; number < Sample::kCount; ++number) {
        const Sample sample(number);
        const Known value = Knowledge(node, sample).of(node);
        if (!value.isConstant() || value.isNever() || !faultOf(target.vr, *value.text)) return false;
        if (shown.empty()) shown = *value.text;
    }
    return view.tell(Check::VrMismatch, node,
                     fmt::format("{}: this makes values such as {}, which are none of {}", target.name(),
                                 shownQuoted(shown), DcmVR(target.vr).getVRName()));
}

class WriteCheck {
public:
    WriteCheck(const RuleView& view, Target target) : view_(view), target_(std::move(target)) {}

    void visit(const Expression& node)
    {
        bool isPassed = false;
        for (std::size_t i = 0; !isLiteral(node) && i < node.params.size(); ++i) {
            if (!isPassedOn(node, i)) continue;
            isPassed = true;
            if (!isUnreachable(view_, node, i)) visit(argumentOf(node, i));
        }
        if (!isPassed) judge(node);
    }

private:
    void judge(const Expression& node)
    {
        const Known& value = view_.of(node);
        lintLetters(node);
        if (value.isNever()) return;
        const Texts texts = isTextless(value.usual.vr) ? Texts() : textsOf(value);
        for (const std::string& text : texts) {
            if (lintText(view_, target_, node, text)) return;
        }
        if (isRead(node) && pathOf(node) == view_.target) return;
        if (!texts.empty() || lintKind(view_, target_, node, value)) return;
        std::ignore = lintSize(view_, target_, node, value) || lintSamples(view_, target_, node) || lintCase(node);
    }

    void lintLetters(const Expression& node)
    {
        const bool isVariable = wayOf(node) == Way::Variable && view_.of(node).text;
        const std::string text(isVariable ? *view_.of(node).text : std::string(literalOf(node)));
        if (!isAscii(text) && !view_.knowledge.isDecidedBy(node, {0x0008, 0x0005})) {
            view_.tell(Check::NonAscii, node,
                       fmt::format("{}: these bytes mean what the dataset's Specific Character Set makes of them",
                                   target_.name()),
                       isUtf8(text) ? "as UTF-8 they are right in datasets of ISO_IR 192 alone" : "");
        }
        if (wayOf(node) != Way::Joined) return;
        for (const Expression* part : node.params) lintLetters(*part);
    }

    bool lintCase(const Expression& node)
    {
        constexpr DcmEVR kWritten[] = {EVR_LO, EVR_LT, EVR_PN, EVR_SH, EVR_ST, EVR_UC, EVR_UT};
        return wayOf(node) == Way::Recased && std::ranges::find(kWritten, target_.vr) != std::end(kWritten) &&
               view_.tell(Check::CaseChange, node,
                          fmt::format("{}: letters beyond ASCII keep their case, or become others", target_.name()),
                          "ask for the character set, (0008,0005), in a condition");
    }

    const RuleView& view_;
    const Target target_;
};

/// @return whether a rule writes nothing but NULL, and its target's own value.
bool isKeptOrDeleted(const RuleView& view, const Expression& node)
{
    const Expression& inner = unwrapped(node);
    if (wayOf(inner) == Way::Null || pathOf(inner) == view.target) return true;
    bool isPassed = false;
    for (std::size_t i = 0; !isLiteral(inner) && i < inner.params.size(); ++i) {
        if (!isPassedOn(inner, i)) continue;
        isPassed = true;
        if (!isKeptOrDeleted(view, argumentOf(inner, i))) return false;
    }
    return isPassed;
}

void lintTag(const RuleView& view, const Target& target)
{
    const auto report = [&view](Check check, std::string message) {
        view.site.report(check, {0, view.site.line.equals}, std::move(message));
    };
    const DcmTagKey& key = target.key;
    const bool isPrivate = key.getGroup() % 2 != 0;
    if (target.vr == EVR_UNKNOWN && (!isPrivate || !isKeptOrDeleted(view, view.root())))
        report(Check::UnknownTag,
               fmt::format(
                   "the data dictionary does not know {}: the write is skipped unless the element is there already",
                   keyText(key)));
    if (view.target.size() == 2 && (key.getGroup() == 0x0000 || key.getGroup() == 0x0002))
        report(
            Check::HeaderGroup,
            fmt::format("group {:04x} is no part of a dataset: files and messages have it in front", key.getGroup()));
    if (key == DCM_SpecificCharacterSet)
        report(Check::CharacterSet, "this relabels the bytes of all texts in the dataset, and converts none of them");
    if (key == DCM_SOPInstanceUID)
        report(Check::InstanceUid,
               "another SOP Instance UID makes another object: references to this one no longer find it");
}

bool writesItself(const RuleView& view, const Expression& node)
{
    const Expression& inner = unwrapped(node);
    if (pathOf(inner) == view.target) return true;
    if (!isLiteral(inner) && wayOf(inner) == Way::Variable && isLiteral(*inner.params.front())) {
        const Expression* definition = view.state.definition(std::string(literalOf(*inner.params.front())));
        return definition != nullptr && pathOf(unwrapped(*definition)) == view.target;
    }
    bool isPassed = false;
    for (std::size_t i = 0; !isLiteral(inner) && i < inner.params.size(); ++i) {
        if (!isPassedOn(inner, i) || isUnreachable(view, inner, i)) continue;
        isPassed = true;
        if (!writesItself(view, argumentOf(inner, i))) return false;
    }
    return isPassed && wayOf(inner) != Way::Table && wayOf(inner) != Way::Found;
}

/// A custom field keeps the text of a value.
void lintField(const RuleView& view, const Expression& node)
{
    bool isPassed = false;
    for (std::size_t i = 0; !isLiteral(node) && i < node.params.size(); ++i) {
        if (!isPassedOn(node, i)) continue;
        isPassed = true;
        if (!isUnreachable(view, node, i)) lintField(view, argumentOf(node, i));
    }
    if (!isPassed && isRead(node)) lintRead(view, node, Demand::Text);
}

void lintFieldItself(const RuleView& view, const std::string& name)
{
    const Expression& value = unwrapped(view.root());
    const bool isItself =
        wayOf(value) == Way::Field && isLiteral(*value.params.front()) && literalOf(*value.params.front()) == name;
    if (isItself || (wayOf(value) == Way::Null && view.state.field(name).isNever()))
        view.site.report(Check::NoEffect, {0, view.site.line.equals},
                         isItself ? "this writes the field's own value: nothing changes"
                                  : "an earlier rule has cleared this already: nothing changes");
}

} // namespace

void lintWrite(const RuleView& view, bool isTold)
{
    if (view.target.empty()) {
        const auto* field = dynamic_cast<const LVCustomField*>(view.site.line.target.get());
        if (field != nullptr) lintField(view, view.root());
        if (field != nullptr && !isTold) lintFieldItself(view, field->name);
        return;
    }
    const DcmTagKey key = tagOf(view.target);
    const Target target{key, vrOf(key), view.state.untouched(key)};
    lintTag(view, target);
    lintPath(view, view.target, nullptr);
    if (!isTold && writesItself(view, view.root()))
        view.site.report(Check::NoEffect, {0, view.site.line.equals},
                         "this writes the element's own value: nothing changes");
    if (!isTold && wayOf(unwrapped(view.root())) == Way::Null && view.state.element(view.target).isNever())
        view.site.report(Check::NoEffect, {0, view.site.line.equals},
                         "an earlier rule has deleted this already: nothing changes");
    lintObject(view, key);
    WriteCheck(view, target).visit(view.root());
}

} // namespace kxtool
