// SPDX-License-Identifier: BSD-3-Clause
// The table of built-ins against the engine: whatever is told of a rule without a dataset must hold on every dataset.
#include "support/fixture.h"
#include "tool/rules/builtins.h"
#include "tool/rules/heldvalue.h"
#include "tool/rules/knowledge.h"
#include "tool/rules/messagetap.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <nlohmann/json.hpp>

#include <array>
#include <fstream>
#include <random>
#include <set>

using namespace kxtool;

namespace {

class RandomRules {
public:
    explicit RandomRules(unsigned seed) : random_(seed) {}

    std::string expression(int depth)
    {
        if (depth == 0 || below(4) == 0) return leaf();
        const Builtin& builtin = builtins()[below(builtins().size() - 1)];
        if (builtin.way == Way::Tag) return leaf();
        std::size_t count = below(7);
        while (!builtin.function->numParamsOK(static_cast<int>(count))) count = (count + 1) % 7;
        std::string text(builtin.name());
        for (std::size_t i = 0; i < count; ++i) {
            text += i == 0 ? "(" : ",";
            text += builtin.reads.at(i) == Reading::Number && below(2) == 0 ? number() : expression(depth - 1);
        }
        return text + (count == 0 ? "()" : ")");
    }

    std::size_t below(std::size_t limit) { return random_() % limit; }

private:
    std::string leaf()
    {
        constexpr std::array kLeaves = {
            "(0010,0010)",  "(0010,0020)", "(0008,0020)", "(0028,0010)", "$(v)",  "USER(f)",
            "NULL()",       "\"\"",        "\"A^B\"",     "\"a\"",       "\"7\"", "\"007x\"",
            "\"20240131\"", "\"^\"",       "\"true\"",    "0010",        "0020",  "SEQ(0010,1002,0,0010,0020)"};
        return below(5) == 0 ? number() : kLeaves[below(kLeaves.size())];
    }
    std::string number() { return '"' + std::to_string(static_cast<int>(below(9)) - 2) + '"'; }

    std::mt19937 random_;
};

void fill(DcmDataset& dataset, RandomRules& random)
{
    constexpr std::array kTexts = {"", "A^B", "7", "x", "20240131", "-3", "ab cd", "20231301"};
    for (const DcmTagKey& key : {DCM_PatientName, DCM_PatientID, DCM_StudyDate}) {
        if (random.below(4) != 0) dataset.putAndInsertString(key, kTexts[random.below(kTexts.size())]);
    }
    if (random.below(2) == 0) dataset.putAndInsertUint16(DCM_Rows, 128);
}

bool holds(const Known& known, const std::optional<std::string>& text)
{
    if (!text) return !known.isAlways();
    if (known.isNever() || (known.text && *known.text != *text)) return false;
    const Bytes bytes = bytesOf(*text);
    if (text->size() < known.least || text->size() > known.most) return false;
    if ((known.holds & ~bytes).any() || (bytes & ~known.may).any()) return false;
    const std::vector<std::string>& some = known.oneOf;
    if (!canBe(known, *text) || (!some.empty() && std::ranges::find(some, *text) == some.end())) return false;
    const auto number = numberIn(*text);
    if (number && (*number < rangeOf(known).lowest || *number > rangeOf(known).highest)) return false;
    return !known.isNumber || (number && std::to_string(*number) == *text);
}

nlohmann::json reference()
{
    std::ifstream file(KXDCM_SOURCE_DIR "/docs/functions.json");
    return nlohmann::json::parse(file)["entries"];
}

} // namespace

TEST(Builtins, WhatIsToldWithoutADatasetHoldsOnEachOne)
{
    constexpr int kRules = 20000;
    RandomRules random(20);
    const Surroundings nothing;
    const MessageTap quiet;
    int told = 0;
    for (int i = 0; i < kRules; ++i) {
        const std::string rule = random.expression(3);
        const std::unique_ptr<Expression> expression(Expression::readCfgLine(rule.c_str()));
        ASSERT_NE(expression, nullptr) << rule;
        const Knowledge knowledge(*expression, nothing);
        const Known& known = knowledge.of(*expression);
        told += known.isConstant() ? 1 : 0;
        for (int round = 0; round < 4; ++round) {
            DcmDataset dataset;
            fill(dataset, random);
            MappingSession session;
            session.dataset = &dataset;
            if (round % 2 == 1) session.setVariable("v", "b");
            const auto text = HeldValue(expression->getValue(session)).text();
            ASSERT_TRUE(holds(known, text)) << rule << " -> " << text.value_or("NULL");
        }
    }
    EXPECT_GT(told, kRules / 20); // else nothing was tested
    EXPECT_LT(told, kRules * 4 / 5);
}

TEST(Builtins, FollowTheEnginesOrder)
{
    for (std::size_t i = 0; i + 1 < builtins().size(); ++i) EXPECT_EQ(builtins()[i].function, funcList[i]) << i;
    EXPECT_EQ(builtins().back().function, &f_root);
}

// The words of the reference are written by hand: what the table says, too, must be the same there.
TEST(Builtins, AreThoseOfTheReference)
{
    std::set<std::string> documented;
    for (const auto& entry : reference()) {
        const std::string name = entry["name"];
        const Builtin* builtin = builtinNamed(name);
        if (builtin == nullptr) continue;
        documented.insert(name);
        EXPECT_EQ(entry["signature"], builtin->signature()) << name;
    }
    for (const Builtin& builtin : builtins().first(builtins().size() - 1))
        EXPECT_TRUE(builtin.way == Way::Tag || documented.contains(std::string(builtin.name()))) << builtin.name();
}

TEST(Builtins, TellOfPartsOfARule)
{
    struct Case {
        const char* rule;
        Known::Presence presence;
        std::optional<std::string> text;
    };
    using enum Known::Presence;
    const Case cases[] = {
        {"substr((0008,0050),\"-3\")", Never, {}},
        {"split((0010,0010),\"-\",\"0\")", Never, {}},
        {"split(add((0010,0020),\"1\"),\"x\",\"2\")", Never, {}},
        {"rnd(\"1\")", Never, {}},
        {"rnd(\"2\")", Always, {}},
        {"div((0010,0020),\"0\")", Never, {}},
        {"between((0010,0020),\"120\",\"100\")", Never, {}},
        {"equals(toUpper((0008,0060)),\"ct\")", Never, "true"},
        {"equals(strlen((0008,0060)),\"02\")", Never, "true"},
        {"equals((0010,0010),(0010,0010))", Always, "true"},
        {"equals(rnd(\"9\"),rnd(\"9\"))", Perhaps, "true"},
        {"not(equals(or((0010,0010),\"x\"),NULL()))", Always, "true"},
        {"or((0010,0010),\"x\")", Always, {}},
        {"concat(\"N-\",(0010,0020))", Always, {}},
        {"concat((0010,0010),(0010,0020))", Perhaps, {}},
        {"if(\"\",\"a\",(0010,0010))", Always, "a"},
        {"translate((0010,0010),\"b\",NULL(),\"b\")", Always, "b"},
        {"translate(\"x\",(0010,0010),\"x\",\"y\")", Always, "y"},
        {"contains(toLower((0010,0010)),\"MR\")", Never, {}},
        {"indexof((0010,0010),\"^\")", Perhaps, {}},
        {"add(\"2\",\"x\")", Never, {}},
        {"dicomAge((0008,0020),\"19x\")", Never, {}},
        // Ranges, and the few texts that a choice leaves.
        {"between(mod((0020,0013),4),4,8)", Never, {}},
        {"between(strlen((0008,1030)),-5,0)", Never, {}},
        {"equals(indexof((0008,1030),\"x\"),-2)", Never, {}},
        {"equals(rnd(10),10)", Never, {}},
        {"mul((0020,0013),0)", Perhaps, "0"},
        {"equals(if((0008,1030),\"CT X\",\"MR X\"),\"CT R\")", Never, {}},
        {"not(equals(toLower(if((0008,1030),\"A\",\"B\")),\"A\"))", Always, "true"},
        // What the conditions around a part tell of it.
        {"and((0008,1030),not((0008,1030)))", Never, {}},
        {"or((0008,1030),not((0008,1030)))", Always, {}},
        {"or(not(equals((0008,0060),\"CT\")),not(equals((0008,0060),\"MR\")))", Always, "true"},
        {"if(equals((0008,0060),\"CT\"),equals(\"MR\",(0008,0060)),NULL())", Never, {}},
        {"if(equals((0008,0060),\"CT\"),NULL(),equals((0008,0060),\"CT\"))", Never, {}},
        {"translate((0008,0060),NULL(),\"CT\",equals((0008,0060),\"MR\"))", Never, {}},
        {"if(contains((0008,1030),\"x\"),strlen((0008,1030)),0)", Always, {}},
        {"if((0008,1030),\"a\",or((0008,1030),\"b\"))", Always, {}},
        {"equals(if(equals((0008,0060),\"DX\"),\"CR\",(0008,0060)),\"DX\")", Never, {}},
        {"(0010,\"zz\")", Never, {}},
        {"$(NULL())", Never, {}},
    };
    for (const Case& c : cases) {
        const std::unique_ptr<Expression> expression(Expression::readCfgLine(c.rule));
        ASSERT_NE(expression, nullptr) << c.rule;
        const Knowledge knowledge(*expression, Surroundings());
        const Known& known = knowledge.of(*expression);
        EXPECT_EQ(known.presence, c.presence) << c.rule;
        EXPECT_TRUE(known.isNever() || known.text == c.text) << c.rule;
    }
}
