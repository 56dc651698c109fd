// SPDX-License-Identifier: BSD-3-Clause
// Operands that are read where they stand: no evaluation writes to the dataset, so they stay what they are.
#include "kxmap/functions/operands.h"

#include "kxmap/core/itempath.h"
#include "kxmap/functions/lookups.h"

kxmap::Operand::Operand(MappingSession& session, Expression& node) : value_(nullptr)
{
    if (node.func == nullptr) literal_ = node.text == nullptr ? "" : node.text;
    else if (node.func == &f_empty && isPlainTag(node.params)) element_ = findPlainTag(session, node.params);
    else value_.reset(node.getValue(session));
}

const char* kxmap::Operand::text()
{
    if (element_ != nullptr && literal_ == nullptr) {
        literal_ = elementText(*element_);
        if (literal_ == nullptr) literal_ = "";
    }
    return literal_ != nullptr ? literal_ : textOf(value_.get());
}

Value* kxmap::Operand::release()
{
    const char* literal = std::exchange(literal_, nullptr);
    if (element_ != nullptr) return new TagValue(std::exchange(element_, nullptr));
    return literal != nullptr ? new StringValue(literal) : value_.release();
}
