// SPDX-License-Identifier: BSD-3-Clause
// Elements, variables and custom fields that rules read, and the paths that lead to elements.
#include "tool/lint/ruleview.h"
#include "tool/lint/vrtext.h"

#include <fmt/format.h>

namespace kxtool {
namespace {

DcmTagKey keyAt(const TagPath& path, std::size_t at)
{
    return {static_cast<Uint16>(path[at]), static_cast<Uint16>(path[at + 1])};
}

bool report(const RuleView& view, const Expression* read, Check check, std::string message, std::string hint = {})
{
    if (read != nullptr) return view.tell(check, *read, std::move(message), std::move(hint));
    view.site.report(check, {0, view.site.line.equals}, std::move(message), std::move(hint));
    return true;
}

bool leadsAstray(const RuleView& view, const TagPath& path, const Expression* read)
{
    for (std::size_t at = 0; at + 2 < path.size(); at += 3) {
        const DcmTagKey key = keyAt(path, at);
        const DcmEVR vr = vrOf(key);
        if (vr == EVR_SQ || vr == EVR_UNKNOWN || vr == EVR_UN) continue;
        return report(view, read, Check::NoSequence,
                      fmt::format("{} is no sequence: this leads nowhere, and {}", shownTag(key),
                                  read == nullptr ? "nothing is written" : "is always NULL"));
    }
    return false;
}

bool isUnknown(const DcmTagKey& key)
{
    return key.getGroup() % 2 == 0 && vrOf(key) == EVR_UNKNOWN;
}

bool isHeader(const DcmTagKey& key)
{
    return key.getGroup() == 0x0000 || key.getGroup() == 0x0002;
}

bool lintPathRead(const RuleView& view, const Expression& read, const TagPath& path)
{
    if (leadsAstray(view, path, &read)) return true;
    const DcmTagKey key = tagOf(path);
    if (isHeader(key) && path.size() == 2)
        return view.tell(Check::HeaderGroup, read,
                         fmt::format("group {:04x} is no part of a dataset: this is always NULL", key.getGroup()));
    if (isUnknown(key))
        return view.tell(Check::UnknownTag, read,
                         fmt::format("the data dictionary does not know {}: hardly a dataset has it", keyText(key)));
    return view.state.isDeleted(path) &&
           view.tell(Check::ReadAfterDelete, read, "an earlier rule has deleted this: it is always NULL",
                     "read it before that rule, into a variable");
}

} // namespace

void lintPath(const RuleView& view, const TagPath& path, const Expression* read)
{
    if (leadsAstray(view, path, read) || path.size() == 2) return;
    const TagPath sequence(path.begin(), path.end() - 3);
    if (view.state.isDeleted(sequence))
        report(view, read, Check::ReadAfterDelete,
               "an earlier rule has deleted the sequence: items are never made, so nothing is written");
}

bool lintRead(const RuleView& view, const Expression& read, Demand demand)
{
    if (const auto path = pathOf(read); path && lintPathRead(view, read, *path)) return true;
    const Known& known = view.of(read);
    if (wayOf(read) == Way::Field && isLiteral(*read.params.front()) &&
        view.state.field(std::string(literalOf(*read.params.front()))).isNever())
        return view.tell(Check::ReadAfterDelete, read, "an earlier rule has cleared this: it is always NULL");
    const DcmEVR vr = known.usual.vr;
    if ((demand != Demand::Text && demand != Demand::Number) || !isTextless(vr) || !known.text) return false;
    return view.tell(Check::NoText, read,
                     fmt::format("rules see no text in values of {}: this is an empty text, whatever the value",
                                 DcmVR(vr).getVRName()),
                     "ask only whether it is there: if(a,b,c), not(a)");
}

} // namespace kxtool
