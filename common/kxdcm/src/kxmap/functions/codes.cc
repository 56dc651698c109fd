// SPDX-License-Identifier: BSD-3-Clause
// New values from identifying ones: codes of the same shape, random numbers, ages.
#include "kxmap.h"

#include "QVDate.h"
#include "kxmap/core/limits.h"
#include "kxmap/core/numbers.h"
#include "kxmap/functions/messages.h"
#include "kxmap/functions/operands.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

using kxmap::Arguments;
using kxmap::Operand;

unsigned int gseed = 0;

namespace {

constexpr std::string_view kAlphabetA = ",^qwertyuiopasdfghjklzxcvbnm1234567890_`'\"- QWERTYUIOPASDFGHJKLZXCVBNM";
static_assert(kAlphabetA.size() == 70);

/// 25 ASCII marks, then the bytes 0xA1 to 0xFF.
constexpr std::array<char, 120> kAlphabetBBytes = [] {
    constexpr std::string_view marks = R"(~!@#$%&*()=+[]{}\|;:<>./?)";
    static_assert(marks.size() == 25);
    std::array<char, 120> bytes{};
    std::copy(marks.begin(), marks.end(), bytes.begin());
    for (unsigned int i = 25; i < bytes.size(); ++i) bytes[i] = static_cast<char>(0xA1 + i - 25);
    return bytes;
}();
constexpr std::string_view kAlphabetB(kAlphabetBBytes.data(), kAlphabetBBytes.size());

/// Steps `shift` places around the alphabet, again while it lands on a forbidden byte.
/// @return the byte there; `byte` as it came when as many steps as the alphabet has bytes found none that is allowed.
/// @param forbidden null for none.
char stepAround(std::string_view alphabet, std::size_t position, std::size_t shift, const char* forbidden, char byte)
{
    for (std::size_t step = 0; step < alphabet.size(); ++step) {
        position += shift;
        if (position >= alphabet.size()) position -= alphabet.size();
        const char candidate = alphabet[position];
        if (forbidden == nullptr || std::strchr(forbidden, candidate) == nullptr) return candidate;
    }
    return byte;
}

char codeByte(char byte, std::size_t shift, const char* forbidden)
{
    for (const std::string_view alphabet : {kAlphabetA, kAlphabetB}) {
        const std::size_t position = alphabet.find(byte);
        if (position != std::string_view::npos) return stepAround(alphabet, position, shift, forbidden, byte);
    }
    return byte;
}

/// @param number not negative.
/// @return a number of as many digits; for very large ones the 32-bit products wrap, and the result with them.
int codeOf(int number)
{
    constexpr int kFactor = 23;
    constexpr int kOffset = 12031;
    int power = 1; // the power of ten with as many digits as the number
    while (number / power >= 10) power *= 10;
    if (power == 1) return (kFactor * number + kOffset) % 10;
    const int scrambled = kxmap::wrappingAdd(kxmap::wrappingMul(number - power, kFactor), kOffset);
    return kxmap::wrappingAdd(power, scrambled % kxmap::wrappingMul(9, power)); // 9 * power never wraps to 0 or -1
}

/// Reports what an operand is not good for. @return NULL.
Value* refuse(const char* message, const char* about)
{
    std::fprintf(stderr, "%s%s\n", message, about);
    return nullptr;
}

/// @return the next number of the sequence that all threads share: each number is drawn once.
int drawShared()
{
    const std::atomic_ref<unsigned int> state(gseed);
    unsigned int before = state.load(std::memory_order_relaxed);
    for (;;) {
        unsigned int after = before;
        const int drawn = rand_r(&after);
        if (state.compare_exchange_weak(before, after, std::memory_order_relaxed)) return drawn;
    }
}

unsigned int seedOf(const char* text)
{
    unsigned int seed = 0;
    unsigned int position = 1;
    for (const char* p = text; *p != '\0'; ++p, ++position) {
        seed = (seed + static_cast<unsigned char>(*p) * position * position) & 0x7FFF;
    }
    return seed;
}

} // namespace

// codenumber(number): another number of as many digits, always the same for the same number. Leading zeros stay in
// front of it.
Value* codenumber_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Operand operand = Arguments(session, params).next();
    if (operand.isNull()) return nullptr;
    const char* text = operand.text();
    if (text == nullptr) return refuse(kxmap::kInvalidCodeNumber, kxmap::kNull);
    int number = -1;
    if (!kxmap::readInt(text, number) || number < 0) return refuse(kxmap::kInvalidCodeNumber, text);
    const std::string zeros(std::strspn(text, "0"), '0');
    return new StringValue((zeros + std::to_string(codeOf(number))).c_str());
}

// codestring(text [, forbidden]): each byte replaced within its alphabet, by a step that shrinks from byte to byte, so
// that no byte of the forbidden set comes out. Deliberate: only the first 64 bytes are coded, and the rest is cut off.
Value* codestring_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    Operand operand = arguments.next();
    const char* text = operand.text();
    if (text == nullptr) return nullptr;
    Operand forbiddenOperand = arguments.next();
    const char* forbidden = forbiddenOperand.text();

    std::string coded(text, strnlen(text, kxmap::kMaxCodedBytes));
    std::size_t shift = coded.size();
    for (char& byte : coded) byte = codeByte(byte, shift--, forbidden);
    return new StringValue(coded.c_str());
}

// rnd(max [, seed]): a number from 0 to max - 1. With a seed text it depends on that text and max alone.
Value* rnd_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    Operand maxOperand = arguments.next();
    if (maxOperand.isNull()) return nullptr;
    const char* maxText = maxOperand.text();
    if (maxText == nullptr) return refuse(kxmap::kInvalidRndMax, kxmap::kNull);
    int max = -1;
    kxmap::readInt(maxText, max);
    if (max < 2) return refuse(kxmap::kInvalidRndMax, std::to_string(max).c_str());

    Operand seedOperand = arguments.next();
    if (seedOperand.isNull()) return new StringValue(std::to_string(drawShared() % max).c_str());
    const char* seedText = seedOperand.text();
    if (seedText == nullptr) return refuse(kxmap::kInvalidRndSeed, kxmap::kNull);
    unsigned int seed = seedOf(seedText);
    OFLOG_DEBUG(logger, kxmap::kLocalSeed << std::to_string(seed)); // in no locale
    return new StringValue(std::to_string(rand_r(&seed) % max).c_str());
}

// dicomAge(date, since): the age at the date of who was born on the other, in the form of a DICOM age (PS3.5, AS).
Value* dicomAge_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    Operand date = arguments.next();
    if (date.isNull()) return nullptr;
    Operand since = arguments.next();
    const std::string age = QVDate(date.text()).ageSince(QVDate(since.text())); // empty where one is no date
    return age.empty() ? nullptr : new StringValue(age.c_str());
}
