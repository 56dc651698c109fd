// SPDX-License-Identifier: BSD-3-Clause
// Integer arithmetic and the range test: 32-bit signed numbers read with "%d" that wrap around. The first operand that
// is NULL or no number ends the evaluation with a message and NULL; which message goes where is a table in messages.h.
#include "kxmap.h"

#include "kxmap/core/numbers.h"
#include "kxmap/functions/messages.h"
#include "kxmap/functions/operands.h"

#include <cstdio>
#include <limits>

using kxmap::Arguments;
using kxmap::Channel;
using kxmap::Operand;
using kxmap::OperandTexts;
using kxmap::truth;

namespace {

void report(Channel channel, const char* message, const char* operand = "")
{
    if (channel == Channel::kStandardError) {
        std::fprintf(stderr, "%s%s\n", message, operand);
    } else {
        OFLOG_ERROR(logger, message << operand);
    }
}

/// Reads an operand; what is wrong with it is reported as `texts` has it.
/// @return whether it is a number.
bool readOperand(Operand& operand, const OperandTexts& texts, int& number)
{
    const char* text = operand.text();
    if (text == nullptr) {
        if (texts.null != nullptr) report(texts.channel, texts.null);
        return false;
    }
    if (kxmap::readInt(text, number)) return true;
    report(texts.channel, texts.invalid, text);
    return false;
}

bool readNext(Arguments& arguments, const OperandTexts& texts, int& number)
{
    Operand operand = arguments.next();
    return readOperand(operand, texts, number);
}

Value* numberValue(int number)
{
    return new StringValue(std::to_string(number).c_str());
}

/// Folds all operands, left to right.
Value* fold(MappingSession& session, std::list<Expression*>& params, const OperandTexts& texts, int start,
            std::int32_t (*combine)(std::int32_t, std::int32_t))
{
    int result = start;
    for (Arguments arguments(session, params); !arguments.isAtEnd();) {
        int operand = 0;
        if (!readNext(arguments, texts, operand)) return nullptr;
        result = combine(result, operand);
    }
    return numberValue(result);
}

/// What "div" and "mod" share. The one quotient that 32 bits cannot hold, -2147483648 / -1, and its remainder are
/// reported as an invalid divisor, since the processor faults on them.
Value* divide(MappingSession& session, std::list<Expression*>& params, const OperandTexts& dividendTexts,
              const OperandTexts& divisorTexts, const char* zeroText, int (*combine)(int, int))
{
    Arguments arguments(session, params);
    int dividend = 0;
    if (!readNext(arguments, dividendTexts, dividend)) return nullptr;
    Operand divisorOperand = arguments.next();
    int divisor = 0;
    if (!readOperand(divisorOperand, divisorTexts, divisor)) return nullptr;
    if (divisor == 0) {
        report(Channel::kLogger, zeroText);
        return nullptr;
    }
    if (divisor == -1 && dividend == std::numeric_limits<int>::min()) {
        report(divisorTexts.channel, divisorTexts.invalid, divisorOperand.text());
        return nullptr;
    }
    return numberValue(combine(dividend, divisor));
}

} // namespace

// add(a, b, ...): their sum.
Value* add_getValue(MappingSession& session, std::list<Expression*>& params)
{
    return fold(session, params, kxmap::kAddOperand, 0, kxmap::wrappingAdd);
}

// mul(a, b, ...): their product.
Value* mul_getValue(MappingSession& session, std::list<Expression*>& params)
{
    return fold(session, params, kxmap::kMulOperand, 1, kxmap::wrappingMul);
}

// sub(a, b): a less b.
Value* sub_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    int a = 0;
    int b = 0;
    if (!readNext(arguments, kxmap::kSubOperand, a) || !readNext(arguments, kxmap::kSubOperand, b)) return nullptr;
    return numberValue(kxmap::wrappingSub(a, b));
}

// div(a, b): the quotient, truncated toward zero.
Value* div_getValue(MappingSession& session, std::list<Expression*>& params)
{
    return divide(session, params, kxmap::kDividend, kxmap::kDivisor, kxmap::kDivideByZero,
                  [](int a, int b) { return a / b; });
}

// mod(a, b): the remainder, with the sign of a.
Value* mod_getValue(MappingSession& session, std::list<Expression*>& params)
{
    return divide(session, params, kxmap::kModDividend, kxmap::kModDivisor, kxmap::kModuloIsZero,
                  [](int a, int b) { return a % b; });
}

// between(value, lower, upper): "true" when lower <= value < upper, else NULL.
Value* between_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    int value = 0;
    int lower = 0;
    int upper = 0;
    if (!readNext(arguments, kxmap::kBetweenValue, value)) return nullptr;
    if (!readNext(arguments, kxmap::kBetweenLower, lower)) return nullptr;
    if (!readNext(arguments, kxmap::kBetweenUpper, upper)) return nullptr;
    return truth(lower <= value && value < upper);
}
