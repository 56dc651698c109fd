// SPDX-License-Identifier: BSD-3-Clause
// How an argument is evaluated. No evaluation writes to the dataset, so the text of an element may be borrowed.
#include "kxmap/functions/operands.h"

#include "kxmap/core/elements.h"
#include "kxmap/functions/tagreference.h"

#include <tuple>

namespace {

/// @return the value's own text; null for NULL and for a value without text.
const char* textOf(Value* value)
{
    return value == nullptr ? nullptr : value->getString();
}

} // namespace

kxmap::Operand::Operand(MappingSession& session, Expression& node) : value_(nullptr)
{
    if (node.func == nullptr) literal_ = node.text == nullptr ? "" : node.text;
    else if (node.func == &f_empty && isPlainTag(node.params)) element_ = findPlainTag(session, node.params);
    else value_.reset(node.getValue(session));
}

const char* kxmap::Operand::text()
{
    isAsked_ = true;
    if (element_ != nullptr && literal_ == nullptr) {
        literal_ = elementText(*element_);
        if (literal_ == nullptr) literal_ = "";
    }
    return literal_ != nullptr ? literal_ : textOf(value_.get());
}

Value* kxmap::Operand::release()
{
    const char* literal = std::exchange(literal_, nullptr);
    if (element_ != nullptr) value_.reset(new TagValue(std::exchange(element_, nullptr)));
    else if (literal != nullptr) value_.reset(new StringValue(literal));
    if (isAsked_) std::ignore = textOf(value_.get()); // a value's text is as it was when first asked for
    return value_.release();
}
