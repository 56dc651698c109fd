// SPDX-License-Identifier: BSD-3-Clause
// What evaluators share: an operand and its text, handing an operand on, and the two truth values.
#pragma once

#include "kxmap.h"

#include "kxmap/core/guards.h"

#include <cstring>

namespace kxmap {

/// One evaluated argument. Most arguments are literals and elements, and their texts are read from where they are: a
/// value is made of them only when it is handed on.
class Operand {
public:
    /// NULL.
    Operand() : value_(nullptr) {}

    /// Evaluates. @param node borrowed, and so is what is read from it.
    Operand(MappingSession& session, Expression& node);

    bool isNull() const { return element_ == nullptr && literal_ == nullptr && value_.get() == nullptr; }

    /// @return the text, valid as long as this operand; null for NULL and for a value without text.
    const char* text();

    /// @return one reference for the caller; null for NULL. The operand is empty afterwards.
    Value* release();

private:
    const char* literal_ = nullptr; ///< the literal's, or the element's text once asked for
    DcmElement* element_ = nullptr;
    bool isAsked_ = false; ///< for the text
    ValueRef value_;
};

/// Goes through the arguments of a call once, and evaluates one when it is asked for. All built-ins read theirs by it;
/// SArgs of kxmap.h, which makes and holds a value of each, is for other code that is called as an evaluator.
class Arguments {
public:
    Arguments(MappingSession& session, std::list<Expression*>& params)
        : session_(session), current_(params.begin()), end_(params.end())
    {
    }

    bool isAtEnd() const { return current_ == end_; }

    /// Evaluates the next argument; NULL past the last one.
    Operand next() { return isAtEnd() ? Operand() : Operand(session_, **current_++); }

    /// Evaluates the next argument for the evaluator's caller. @return one reference; null for NULL and past the last.
    Value* nextValue() { return isAtEnd() ? nullptr : (*current_++)->getValue(session_); }

    /// Passes over an argument without evaluating it.
    void skip()
    {
        if (!isAtEnd()) ++current_;
    }

private:
    MappingSession& session_;
    std::list<Expression*>::iterator current_;
    std::list<Expression*>::iterator end_;
};

/// Whether both are NULL, or both are values of the same text, to the byte. Without text equals without text.
inline bool sameText(Operand& a, Operand& b)
{
    if (a.isNull() || b.isNull()) return a.isNull() == b.isNull();
    const char* textA = a.text();
    const char* textB = b.text();
    if (textA == nullptr || textB == nullptr) return textA == textB;
    return std::strcmp(textA, textB) == 0;
}

/// @return a new "true", or null.
inline Value* truth(bool isTrue)
{
    return isTrue ? new StringValue("true") : nullptr;
}

} // namespace kxmap
