// SPDX-License-Identifier: BSD-3-Clause
// Every built-in function of the language, a row each. A new one is a row here, an evaluator in the file of its kind, an
// entry in the reference, and a test.
#include "kxmap.h"

#include "kxmap/functions/operands.h"

#include <iterator>

// clang-format off
//                            name          alias    evaluator             arguments
constinit const FunctionDef f_empty      {"",           nullptr, empty_getValue,      empty_numParamsOK};
constinit const FunctionDef f_NULL       {"NULL",       "NULL",  NULL_getValue,       c0_numParamsOK};
constinit const FunctionDef f_var        {"$",          nullptr, var_getValue,        c1_numParamsOK};
constinit const FunctionDef f_user       {"USER",       nullptr, user_getValue,       c1_numParamsOK};
constinit const FunctionDef f_equals     {"equals",     "==",    equals_getValue,     c2_numParamsOK};
constinit const FunctionDef f_not        {"not",        "!",     not_getValue,        c1_numParamsOK};
constinit const FunctionDef f_or         {"or",         "||",    or_getValue,         c2p_numParamsOK};
constinit const FunctionDef f_and        {"and",        "&&",    and_getValue,        c2p_numParamsOK};
constinit const FunctionDef f_if         {"if",         nullptr, if_getValue,         c3_numParamsOK};
constinit const FunctionDef f_concat     {"concat",     "+",     concat_getValue,     c2p_numParamsOK};
constinit const FunctionDef f_split      {"split",      nullptr, split_getValue,      c3_numParamsOK};
constinit const FunctionDef f_contains   {"contains",   nullptr, contains_getValue,   c2_numParamsOK};
constinit const FunctionDef f_substr     {"substr",     nullptr, substr_getValue,     substr_numParamsOK};
constinit const FunctionDef f_strlen     {"strlen",     nullptr, strlen_getValue,     c1_numParamsOK};
constinit const FunctionDef f_indexof    {"indexof",    nullptr, indexof_getValue,    c2_numParamsOK};
constinit const FunctionDef f_toUpper    {"toUpper",    nullptr, toUpper_getValue,    c1_numParamsOK};
constinit const FunctionDef f_toLower    {"toLower",    nullptr, toLower_getValue,    c1_numParamsOK};
constinit const FunctionDef f_dicomAge   {"dicomAge",   nullptr, dicomAge_getValue,   c2_numParamsOK};
constinit const FunctionDef f_sub        {"sub",        "-",     sub_getValue,        c2_numParamsOK};
constinit const FunctionDef f_add        {"add",        "+",     add_getValue,        c2p_numParamsOK};
constinit const FunctionDef f_mul        {"mul",        "*",     mul_getValue,        c2p_numParamsOK};
constinit const FunctionDef f_mod        {"mod",        "%",     mod_getValue,        c2_numParamsOK};
constinit const FunctionDef f_div        {"div",        "/",     div_getValue,        c2_numParamsOK};
constinit const FunctionDef f_between    {"between",    nullptr, between_getValue,    c3_numParamsOK};
constinit const FunctionDef f_rnd        {"rnd",        nullptr, rnd_getValue,        rnd_numParamsOK};
constinit const FunctionDef f_codenumber {"codenumber", nullptr, codenumber_getValue, c1_numParamsOK};
constinit const FunctionDef f_codestring {"codestring", nullptr, codestring_getValue, codestring_numParamsOK};
constinit const FunctionDef f_seq        {"SEQ",        nullptr, seq_getValue,        c3xplus2_numParamsOK};
constinit const FunctionDef f_translate  {"translate",  nullptr, translate_getValue,  c2x_numParamsOK};

// The root of every right-hand side. It is not in the list, so no rule can name it.
constinit const FunctionDef f_root       {"assign_to_lvalue", nullptr, root_getValue, root_numParamsOK};
// clang-format on

const FunctionDef* const funcList[] = {
    &f_empty,   &f_NULL,       &f_var,        &f_user,     &f_equals,    &f_not,    &f_or,      &f_and,
    &f_if,      &f_concat,     &f_split,      &f_contains, &f_substr,    &f_strlen, &f_indexof, &f_toUpper,
    &f_toLower, &f_dicomAge,   &f_sub,        &f_add,      &f_mul,       &f_mod,    &f_div,     &f_between,
    &f_rnd,     &f_codenumber, &f_codestring, &f_seq,      &f_translate, nullptr,
};
static_assert(std::size(funcList) == 30);

// assign_to_lvalue(value): value. assign_to_lvalue(text, separator, n): split of the three.
Value* root_getValue(MappingSession& session, std::list<Expression*>& params)
{
    kxmap::Arguments arguments(session, params);
    if (params.size() == 1) return arguments.nextValue();
    const kxmap::Operand first = arguments.next(); // deliberate: evaluated twice, here and in there
    return split_getValue(session, params);
}
