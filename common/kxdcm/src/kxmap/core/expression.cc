// SPDX-License-Identifier: BSD-3-Clause
// A parsed tree: how it is evaluated, printed and destroyed. How it is made is parser.cc.
#include "kxmap.h"

#include <cstdio>
#include <ostream>

Expression::Expression() : text(nullptr), func(nullptr) {}

Expression::~Expression()
{
    for (Expression* param : params) delete param;
    delete[] text;
}

Value* Expression::getValue(MappingSession& session)
{
    if (func != nullptr) return func->getValue(session, params);
    return new StringValue(text); // an empty node is the empty text
}

void Expression::print()
{
    if (func != nullptr) {
        std::printf("%s(", func->name);
        bool first = true;
        for (Expression* param : params) {
            if (!first) std::printf(",");
            first = false;
            param->print();
        }
        std::printf(")");
    } else if (text != nullptr) {
        std::printf("\"%s\"", text);
    }
    std::fflush(stdout);
}

std::ostream& operator<<(std::ostream& out, const Expression& expression)
{
    if (expression.func != nullptr) {
        out << expression.func->name << '(';
        bool first = true;
        for (const Expression* param : expression.params) {
            if (!first) out << ',';
            first = false;
            out << *param;
        }
        out << ')';
    } else if (expression.text != nullptr) {
        out << '"' << expression.text << '"';
    }
    return out;
}
