// SPDX-License-Identifier: BSD-3-Clause
// What the built-ins report, and where. Texts are kept to the letter: several name "sub" for another function, and
// "between" is silent about its first operand.
#pragma once

namespace kxmap {

/// Where a built-in reports: a line on standard error, or an event at error level.
enum class Channel { kStandardError, kLogger };

/// What is said of one operand of an arithmetic function.
struct OperandTexts {
    Channel channel;
    const char* null;    ///< when it is NULL; null for silence
    const char* invalid; ///< when it is no number; its text follows
};

constexpr OperandTexts kAddOperand{Channel::kStandardError, "Coercion: NULL() parameter at function add",
                                   "Coercion: Invalid parameter at function add: "};
constexpr OperandTexts kSubOperand{Channel::kStandardError, "Coercion: NULL() parameter at function sub",
                                   "Coercion: Invalid parameter at function sub: "};
constexpr OperandTexts kMulOperand{Channel::kLogger, "Coercion: NULL() parameter at function mul",
                                   "Coercion: Invalid parameter at function mul: "};

constexpr OperandTexts kDividend{Channel::kLogger, "Coercion: NULL() parameter at function sub",
                                 "Coercion: Invalid parameter at function div: "};
constexpr OperandTexts kDivisor{Channel::kLogger, "Coercion: NULL() parameter at function div",
                                "Coercion: Invalid parameter at function div: "};
constexpr const char* kDivideByZero = "Coercion: divide by zero at function div";

constexpr OperandTexts kModDividend{Channel::kLogger, "Coercion: NULL() parameter at function sub",
                                    "Coercion: Invalid parameter at function mod: "};
constexpr OperandTexts kModDivisor{Channel::kLogger, "Coercion: NULL() parameter at function mod",
                                   "Coercion: Invalid parameter at function mod: "};
constexpr const char* kModuloIsZero = "Coercion: Modulo is 0 at function mod";

constexpr OperandTexts kBetweenValue{Channel::kStandardError, nullptr, "Coercion: Invalid parameter at function sub: "};
constexpr OperandTexts kBetweenLower{Channel::kStandardError,
                                     "Coercion: NULL() parameter at function sub (lower limit)",
                                     "Coercion: Invalid parameter at function between: "};
constexpr OperandTexts kBetweenUpper{Channel::kStandardError,
                                     "Coercion: NULL() parameter at function sub (upper limit)",
                                     "Coercion: Invalid parameter at function between: "};

// To standard error, each followed by what it complains of and a line feed.
constexpr const char* kInvalidCodeNumber = "Coercion: Invalid codenumber original value: ";
constexpr const char* kInvalidRndMax = "Coercion: Invalid rnd maxvalue: ";
constexpr const char* kInvalidRndSeed = "Coercion: Invalid rnd seed value: ";
constexpr const char* kNull = "NULL()";

// At debug level.
constexpr const char* kLocalSeed = "Coercion: Local seed: ";

/// The text of "toUpper" and "toLower" for a value without text. Servers match on it, so it does not depend on the
/// wording of the C++ library at hand.
constexpr const char* kNoText = "basic_string::_M_construct null not valid";

} // namespace kxmap
