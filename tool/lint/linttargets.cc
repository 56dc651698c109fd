// SPDX-License-Identifier: BSD-3-Clause
// How targets of rules are written.
#include "tool/lint/lint.h"
#include "tool/lint/vrtext.h"

#include "kxmap.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>

namespace kxtool {
namespace {

using kxmap::Span;

bool isHex(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

/// @return a piece of a path, as its reader takes it.
std::string_view withoutBlanks(std::string_view piece)
{
    piece.remove_prefix(std::min(piece.find_first_not_of(' '), piece.size()));
    return piece.substr(0, piece.find_last_not_of(' ') + 1);
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
        const std::string_view piece = withoutBlanks(left.substr(begin, end - begin));
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

} // namespace

void lintTarget(const Site& site)
{
    const auto* target = dynamic_cast<const LVDicomTag*>(site.line.target.get());
    if (target == nullptr) return;
    const auto* path = dynamic_cast<const LVSeqDicomTag*>(target);
    if (path != nullptr) lintPathText(site, *path);
    else lintTagText(site, target->tag);
}

} // namespace kxtool
