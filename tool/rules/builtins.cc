// SPDX-License-Identifier: BSD-3-Clause
#include "tool/rules/builtins.h"

#include "tool/rules/knowncalls.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace kxtool {
namespace {

using namespace knowncalls;
using enum Reading;

// clang-format off
constexpr Builtin kBuiltins[] = {
//   descriptor      way                arguments                       read as                       number of
//     value in words, when there, when not
    {&f_empty,      Way::Tag,          "group,element",                {Group, Element},             false, nullptr,
        nullptr, nullptr, nullptr},
    {&f_NULL,       Way::Null,         "",                             {},                           false, null,
        nullptr, nullptr, nullptr},
    {&f_var,        Way::Variable,     "name",                         {Name},                       false, nullptr,
        nullptr, nullptr, nullptr},
    {&f_user,       Way::Field,        "name",                         {Name},                       false, nullptr,
        nullptr, nullptr, nullptr},
    {&f_equals,     Way::Equal,        "a,b",                          {Text, Text},                 false, equals,
        nullptr, nullptr, nullptr},
    {&f_not,        Way::Not,          "a",                            {Reading::Presence},          false, negated,
        nullptr, nullptr, nullptr},
    {&f_or,         Way::FirstPresent, "a,b, ...",                    {{Value}, 1},                 false, firstPresent,
        nullptr, nullptr, nullptr},
    {&f_and,        Way::AllPresent,   "a,b, ...",                    {{Reading::Presence}, 1},     false, allOf,
        nullptr, nullptr, nullptr},
    {&f_if,         Way::Choice,       "condition,then,otherwise",     {Reading::Presence, Value, Value}, false, choice,
        nullptr, nullptr, nullptr},
    {&f_concat,     Way::Joined,       "a,b, ...",                    {{Text}, 1},                  false, joined,
        nullptr, nullptr, nullptr},
    {&f_split,      Way::Part,         "text,separator,n",             {Text, Text, Number},         false, split,
        "{=2:1}{0} up to the first {1}|the {th2} part of {0}, divided at {1}",
        "{0} has a {th2} part at {1}", "{0} has no {th2} part at {1}"},
    {&f_contains,   Way::Found,        "text,wanted",                  {Text, Value},                false, contains,
        nullptr, "{0} contains {1}", "{0} does not contain {1}"},
    {&f_substr,     Way::Part,         "text,start[,length]",          {Text, Number, Number},       false, substr,
        "{=1:0}the first {n2} bytes of {0}|at most {n2} bytes of {0} after its first {n1}|"
        "{-2}{=1:0}{0}|{-2}{0} without its first {n1} bytes",
        "{-2}{0} has at least {n1} bytes|{?2}{0} has at least {n1} bytes",
        "{-2}{0} has fewer than {n1} bytes|{?2}{0} has fewer than {n1} bytes"},
    {&f_strlen,     Way::Computed,     "text",                         {Text},                       true,  length,
        "the length of {0} in bytes", nullptr, nullptr},
    {&f_indexof,    Way::Computed,     "text,wanted",                  {Text, Wanted},               true,  offset,
        "the offset of {1} in {0} (-1 where it does not occur)", nullptr, nullptr},
    {&f_toUpper,    Way::Recased,      "text",                         {Text},                       false, upper,
        "{0} in upper case", nullptr, nullptr},
    {&f_toLower,    Way::Recased,      "text",                         {Text},                       false, lower,
        "{0} in lower case", nullptr, nullptr},
    {&f_dicomAge,   Way::Computed,     "date,since",                   {Date, Date},                 false, age,
        "the age on {0}, counted from {1}", "an age can be computed from {0} and {1}",
        "no age can be computed from {0} and {1}"},
    {&f_sub,        Way::Counted,      "a,b",                          {Number, Number},             true,  difference,
        "{#0} minus {#1}", nullptr, nullptr},
    {&f_add,        Way::Counted,      "a,b, ...",                    {{Number}, 1},                true,  sum,
        "{* plus }", nullptr, nullptr},
    {&f_mul,        Way::Counted,      "a,b, ...",                    {{Number}, 1},                true,  product,
        "{* times }", nullptr, nullptr},
    {&f_mod,        Way::Computed,     "a,b",                          {Number, Number},             true,  remainder,
        "the remainder of {#0} divided by {#1}", nullptr, nullptr},
    {&f_div,        Way::Computed,     "a,b",                          {Number, Number},             true,  quotient,
        "{#0} divided by {#1} without its fraction", nullptr, nullptr},
    {&f_between,    Way::Within,       "value,lower,upper",            {Number, Number, Number},     false, range,
        nullptr, "{0} is from {#1} to less than {#2}", "{0} is not from {#1} to less than {#2}"},
    {&f_rnd,        Way::Drawn,        "max[,seed]",                 {Number, Text},               true,  chance,
        "{!1}a whole number from 0 to less than {#0} that depends on {1} alone|"
        "a whole number from 0 to less than {#0} that depends on {1} alone (a random one where that is absent)|"
        "a random whole number from 0 to less than {#0}", nullptr, nullptr},
    {&f_codenumber, Way::Computed,     "number",                       {Number},                     true,  codeNumber,
        "a code of as many digits for {0}", "{0} begins with a whole number of 0 or more",
        "{0} begins with no whole number of 0 or more"},
    {&f_codestring, Way::Computed,     "text[,forbidden]",             {Text, Text},                 false, codeText,
        "a code for the first 64 bytes of {0}, of the same length and without any of {1}|"
        "a code for the first 64 bytes of {0}, of the same length", nullptr, nullptr},
    {&f_seq,        Way::Path,         "group,element,item, ..., group,element", {{Group, Element, Number}, 3}, false, nullptr,
        nullptr, nullptr, nullptr},
    {&f_translate,  Way::Table,        "value,default,from,to, ...", {{Text, Value, Text, Value}, 2}, false, table,
        nullptr, nullptr, nullptr},
    {&f_root,       Way::Part,         "text,separator,n",             {Text, Text, Number},         false, rootOf,
        "{=2:1}{0} up to the first {1}|the {th2} part of {0}, divided at {1}",
        "{0} has a {th2} part at {1}", "{0} has no {th2} part at {1}"},
};
// clang-format on
static_assert(std::size(kBuiltins) == std::size(funcList), "each descriptor has a row, f_root that of the list's end");

} // namespace

std::string Builtin::signature() const
{
    return std::string(name()) + "(" + arguments + ")";
}

std::span<const Builtin> builtins()
{
    return kBuiltins;
}

const Builtin& builtinOf(const FunctionDef* function)
{
    constexpr std::size_t kSlots = 256;
    static const auto slotOf = [](const FunctionDef* one) {
        return (reinterpret_cast<std::uintptr_t>(one) / alignof(FunctionDef)) % kSlots;
    };
    static const std::array<const Builtin*, kSlots> rows = [] { // each at its slot, or at the next one that is free
        std::array<const Builtin*, kSlots> all{};
        for (const Builtin& builtin : kBuiltins) {
            std::size_t slot = slotOf(builtin.function);
            while (all[slot] != nullptr) slot = (slot + 1) % kSlots;
            all[slot] = &builtin;
        }
        return all;
    }();
    std::size_t slot = slotOf(function);
    while (rows[slot]->function != function) slot = (slot + 1) % kSlots;
    return *rows[slot];
}

const Builtin* builtinNamed(std::string_view name)
{
    const auto* end = std::end(kBuiltins) - 1;
    const auto* found = name.empty() ? end : std::find_if(std::begin(kBuiltins), end, [name](const Builtin& one) {
        return one.name() == name;
    });
    return found == end ? nullptr : found;
}

Way wayOf(const Expression& node)
{
    if (node.func == nullptr) return Way::Computed;
    const Way way = builtinOf(node.func).way;
    const bool isWrapper = way == Way::Tag || node.func == &f_root;
    return isWrapper && node.params.size() == 1 ? Way::Brackets : way;
}

} // namespace kxtool
