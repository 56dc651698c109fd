// SPDX-License-Identifier: BSD-3-Clause
// Targets of rules, and whether the literals that a rule may write fit them.
#include "tool/dicom/lintvalue.h"
#include "tool/lint/lint.h"

#include "KXItem.h"
#include "kxmap.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <functional>

namespace kxtool {
namespace {

using kxmap::Span;

std::string keyText(const DcmTagKey& key)
{
    return fmt::format("({:04x},{:04x})", key.getGroup(), key.getElement());
}

/// @return the VR that a new element of the tag gets; EVR_UNKNOWN when the engine makes none.
DcmEVR vrOf(const DcmTag& tag)
{
    const DcmTagKey& key = tag;
    if (!KXItem::isOurPrivateTagKey(key)) return key.getGroup() == 0xFFFE ? EVR_UNKNOWN : tag.getEVR();
    const auto known = std::ranges::find(KXItem::dictionary(), key.getElement(), &KXItem::PrivateTag::element);
    return known == KXItem::dictionary().end() ? EVR_UNKNOWN : known->vr;
}

bool isAlwaysNull(const Expression& root)
{
    return root.params.size() == 1 && root.params.front()->func == &f_NULL;
}

bool isHex(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

// The plain form, which the engine scans without looking at all of it.
void lintTagText(const Site& site, const DcmTagKey& key)
{
    const std::string_view left = site.line.left();
    if (isHex(left.substr(1, 4)) && left[5] == ',' && isHex(left.substr(6, 4)) && left[10] == ')') return;
    site.report(Check::OddTag, {0, left.size()}, fmt::format("the engine reads this as {}", keyText(key)),
                "a tag is \"(gggg,eeee)\", with four hexadecimal digits each");
}

void lintPathText(const Site& site, const LVSeqDicomTag& target)
{
    const std::string_view left = site.line.left();
    if (!left.ends_with(')'))
        site.report(Check::OddTag, {left.size() - 1, left.size()},
                    fmt::format("the last byte is dropped, though it is no \")\": the tag is {}", keyText(target.tag)),
                    "add a \")\"");
    if (target.path.size() == 2)
        site.report(Check::TwoFieldSeq, {0, left.size()},
                    "SEQ with a tag alone leads into no sequence: it is the tag itself",
                    fmt::format("write {}=, or SEQ(gggg,eeee,item,gggg,eeee)=", keyText(target.tag)));
    std::size_t position = 0;
    for (std::size_t begin = 4; begin < left.size(); ++position) {
        const std::size_t end = std::min(left.find(',', begin), left.size() - 1);
        const std::string_view piece = left.substr(begin, end - begin);
        const bool isItem = position % 3 == 2;
        const bool isGood =
            isItem
                ? piece.size() < 10 && std::ranges::all_of(piece, [](unsigned char c) { return std::isdigit(c) != 0; })
                : piece.size() <= 4 && isHex(piece);
        if (!isGood) {
            const bool isNumber = isItem && piece.find_first_not_of("+-0123456789") == std::string_view::npos;
            const bool isRange = isNumber && piece.size() >= 10;
            site.report(
                isRange ? Check::NumberRange : Check::OddTag, {begin, end},
                fmt::format("the engine reads {} as {}", shownQuoted(piece),
                            isItem
                                ? fmt::format("item {}", *std::next(target.path.begin(), static_cast<long>(position)))
                                : fmt::format("{:04x}", static_cast<unsigned>(*std::next(target.path.begin(),
                                                                                         static_cast<long>(position))) &
                                                            0xFFFFU)),
                isItem ? "items count from 0; what is below is the first" : "four hexadecimal digits");
        }
        begin = end + 1;
    }
}

void lintTag(const Site& site, const DcmTag& tag, DcmEVR vr, bool isTopLevel)
{
    const Span all{0, site.line.equals};
    if (vr == EVR_UNKNOWN && !isAlwaysNull(*site.line.expression))
        site.report(
            Check::UnknownTag, all,
            fmt::format(
                "the data dictionary does not know {}: the write is skipped unless the element is there already",
                keyText(tag)));
    const DcmTagKey key = tag;
    if (isTopLevel && (key.getGroup() == 0x0000 || key.getGroup() == 0x0002))
        site.report(
            Check::HeaderGroup, all,
            fmt::format("group {:04x} is no part of a dataset: files and messages have it in front", key.getGroup()));
    if (key == DCM_SpecificCharacterSet)
        site.report(Check::CharacterSet, all,
                    "this relabels the bytes of all texts in the dataset, and converts none of them");
    if (key == DCM_SOPInstanceUID)
        site.report(Check::InstanceUid, all,
                    "another SOP Instance UID makes another object: references to this one no longer find it");
}

/// Calls `see(node, text)` for each text that is certain to be written where the rule takes that branch.
void forEachLiteral(const Expression& node, const std::function<void(const Expression&, std::string_view)>& see)
{
    const auto argument = [&node](std::size_t index) -> const Expression& {
        return **std::next(node.params.begin(), static_cast<std::ptrdiff_t>(index));
    };
    const std::size_t count = node.params.size();
    if (node.func == nullptr) {
        see(node, node.text == nullptr ? "" : node.text);
    } else if ((node.func == &f_root || node.func == &f_empty) && count == 1) {
        forEachLiteral(argument(0), see);
    } else if (node.func == &f_if) {
        forEachLiteral(argument(1), see);
        forEachLiteral(argument(2), see);
    } else if (node.func == &f_translate) {
        std::size_t index = 0;
        for (const Expression* param : node.params) { // the default, and the second of each pair
            if (index % 2 == 1) forEachLiteral(*param, see);
            ++index;
        }
    } else if (node.func == &f_or) {
        for (const Expression* param : node.params) {
            forEachLiteral(*param, see);
            if (param->func == nullptr) return; // what follows is never reached
        }
    } else if (node.func == &f_equals || node.func == &f_not || node.func == &f_and || node.func == &f_between) {
        see(node, "true");
    }
}

void lintValue(const Site& site, const DcmTag& tag, DcmEVR vr, const Expression& node, std::string_view text)
{
    const std::string name = tag.getPrivateCreator() == nullptr && !KXItem::isOurPrivateTagKey(tag) && vr != EVR_UNKNOWN
                                 ? fmt::format("{} {}", DcmTag(tag).getTagName(), keyText(tag))
                                 : keyText(tag);
    if (const auto fault = faultOf(vr, text)) {
        const bool isForm = fault->kind == ValueFault::Kind::Form;
        std::string hint;
        if (node.func != nullptr) hint = "a condition that holds is the text \"true\"";
        else if (vr == EVR_CS && isForm &&
                 std::ranges::any_of(text, [](unsigned char c) { return std::islower(c) != 0; }))
            hint = "write it in upper case";
        site.reportRight(isForm ? Check::ValueForm : Check::ValueTooLong, site.spanOf(node),
                         fmt::format("{}: {}", name, fault->message), std::move(hint));
    }
    if (std::ranges::any_of(text, [](unsigned char c) { return c >= 0x80; }))
        site.reportRight(
            Check::NonAscii, site.spanOf(node),
            fmt::format("{}: these bytes mean what the dataset's Specific Character Set makes of them", name),
            characterCount(text) < text.size() ? "as UTF-8 they are right in datasets of ISO_IR 192 alone" : "");
}

} // namespace

void lintTarget(const Site& site)
{
    const auto* target = dynamic_cast<const LVDicomTag*>(site.line.target.get());
    if (target == nullptr) return;
    const auto* path = dynamic_cast<const LVSeqDicomTag*>(target);
    if (path != nullptr) lintPathText(site, *path);
    else lintTagText(site, target->tag);
    const DcmEVR vr = vrOf(target->tag);
    lintTag(site, target->tag, vr, path == nullptr || path->path.size() == 2);
    forEachLiteral(*site.line.expression, [&](const Expression& node, std::string_view text) {
        if (faultOf(vr, text) || std::ranges::any_of(text, [](unsigned char c) { return c >= 0x80; }))
            lintValue(site, target->tag, vr, node, text);
    });
}

} // namespace kxtool
