// SPDX-License-Identifier: BSD-3-Clause
// Conditions are shortened by what is known beside them: a fact that another one settles is left out.
#include "tool/conformance/conformancecondition.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <optional>
#include <utility>

namespace kxtool {
namespace {

constexpr std::size_t kMostFacts = 48; // more say nothing to a reader

bool contains(const std::vector<std::string>& texts, const std::string& text)
{
    return std::ranges::find(texts, text) != texts.end();
}

/// @return whether `wanted` is so when `known` is (or is not); none when that settles nothing.
std::optional<bool> settled(const Fact& wanted, const Fact& known, bool isKnownSo)
{
    if (wanted.yes == known.yes) return isKnownSo;
    if (isKnownSo && contains(known.needs, wanted.yes)) return true;
    if (!isKnownSo && contains(wanted.needs, known.yes)) return false;
    if (isKnownSo && !wanted.rivals.empty() && wanted.rivals == known.rivals) return false;
    return std::nullopt;
}

} // namespace

Condition Condition::always(bool holds)
{
    Condition condition;
    condition.kind_ = holds ? Kind::All : Kind::Any;
    return condition;
}

Condition Condition::fact(Fact fact)
{
    Condition condition;
    condition.kind_ = Kind::Fact;
    condition.fact_ = std::move(fact);
    return condition;
}

Condition Condition::all(std::vector<Condition> parts)
{
    return joined(Kind::All, std::move(parts));
}

Condition Condition::any(std::vector<Condition> parts)
{
    return joined(Kind::Any, std::move(parts));
}

Condition Condition::operator!() const
{
    Condition opposite = *this;
    if (kind_ == Kind::Fact) opposite.isSo_ = !isSo_;
    else opposite.kind_ = kind_ == Kind::All ? Kind::Any : Kind::All;
    for (Condition& part : opposite.parts_) part = !part;
    return opposite;
}

std::size_t Condition::size() const
{
    return std::accumulate(parts_.begin(), parts_.end(), std::size_t{1},
                           [](std::size_t sum, const Condition& part) { return sum + part.size(); });
}

Condition Condition::joined(Kind kind, std::vector<Condition> parts)
{
    Condition whole;
    whole.kind_ = kind;
    whole.parts_ = std::move(parts);
    if (whole.size() > kMostFacts)
        return fact({"the rule's condition is met", "the rule's condition is not met", {}, {}, {}});
    return whole.given(always(true));
}

std::vector<Condition> Condition::facts() const
{
    if (kind_ == Kind::Fact) return {*this};
    std::vector<Condition> found;
    if (kind_ == Kind::All)
        std::ranges::copy_if(parts_, std::back_inserter(found),
                             [](const Condition& p) { return p.kind_ == Kind::Fact; });
    return found;
}

Condition Condition::given(const Condition& known) const
{
    return under(known.facts());
}

Condition Condition::under(const std::vector<Condition>& facts) const
{
    if (kind_ == Kind::Fact) {
        for (const Condition& other : facts) {
            if (const auto is = settled(fact_, other.fact_, other.isSo_)) return always(*is == isSo_);
        }
        return *this;
    }
    if (kind_ == Kind::Any) return !(!*this).under(facts);
    Condition shorter = *this;
    shorten(shorter.parts_, facts);
    if (std::ranges::any_of(shorter.parts_, &Condition::isNever)) return always(false);
    return shorter.parts_.size() == 1 ? Condition(shorter.parts_.front()) : shorter;
}

// Each part by all the others, until nothing gets shorter. A part that is settled goes at once, so that of two which
// settle each other one stays.
void Condition::shorten(std::vector<Condition>& parts, const std::vector<Condition>& known)
{
    for (bool isShorter = true; isShorter;) {
        isShorter = false;
        for (std::size_t i = 0; i < parts.size(); ++i) {
            std::vector<Condition> beside = known;
            for (std::size_t k = 0; k < parts.size(); ++k) {
                if (k != i && parts[k].kind_ == Kind::Fact) beside.push_back(parts[k]);
            }
            Condition part = parts[i].under(beside);
            const auto at = parts.begin() + static_cast<std::ptrdiff_t>(i);
            if (part.isNever()) {
                parts = {part};
                return;
            }
            if (part.kind_ == Kind::All) { // its parts stand beside the others; always has none
                parts.insert(parts.erase(at), part.parts_.begin(), part.parts_.end());
                isShorter = true;
                break;
            }
            isShorter = isShorter || part.size() < parts[i].size();
            parts[i] = std::move(part);
        }
    }
}

std::string Condition::textAmong(const std::vector<Condition>& others) const
{
    if (isSo_) return fact_.yes;
    const bool isNeedMet = !fact_.needs.empty() && std::ranges::any_of(others, [this](const Condition& other) {
        return other.kind_ == Kind::Fact && other.isSo_ && other.fact_.yes == fact_.needs.front();
    });
    return isNeedMet && !fact_.noThough.empty() ? fact_.noThough : fact_.no;
}

std::string Condition::text(const std::vector<std::string>& told) const
{
    if (kind_ == Kind::Fact) return isSo_ && contains(told, fact_.yes) ? "" : textAmong({});
    const auto isTold = [this, &told](const Condition& part) { // elsewhere, or "is present" beside "is empty"
        if (part.kind_ == Kind::Fact && part.isSo_ && contains(told, part.fact_.yes)) return true;
        return kind_ == Kind::All && part.kind_ == Kind::Fact && part.isSo_ &&
               std::ranges::any_of(parts_, [&part](const Condition& other) {
                   return other.kind_ == Kind::Fact && !other.isSo_ && !other.fact_.noThough.empty() &&
                          other.fact_.needs.front() == part.fact_.yes;
               });
    };
    std::vector<Condition> shown;
    std::ranges::remove_copy_if(parts_, std::back_inserter(shown), isTold);
    std::string words;
    for (const Condition& part : shown) {
        if (!words.empty()) words += kind_ == Kind::All ? " and " : ", or ";
        if (part.kind_ == Kind::Fact) words += part.textAmong(kind_ == Kind::All ? parts_ : std::vector<Condition>{});
        else words += kind_ == Kind::All && shown.size() > 1 ? "(" + part.text() + ")" : part.text();
    }
    return words;
}

} // namespace kxtool
