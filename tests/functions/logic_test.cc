// SPDX-License-Identifier: BSD-3-Clause
// What holds for every built-in: truth, the nameless function, the root, which operands are evaluated and in what order,
// which results are the operand itself; and the logic functions and "translate", which have little beyond that.
#include "support/fixture.h"

#include <stdexcept>

namespace {
using namespace kxtest;

TEST(Logic, truthIsPresence)
{
    constexpr RuleCase cases[] = {
        {R"(or(NULL(),"","x"))", ""}, // an empty text is present
        {"or(NULL(),NULL(),NULL(),false)", "false"},
        {R"(and("",0,false))", "true"},
        {"not(NULL())", "true"},
        {R"(not(""))", nullptr},
        {"equals(NULL(),NULL())", "true"},
        {"equals(a,NULL())", nullptr},
        {R"(equals("",NULL()))", nullptr},
        {"equals(01,1)", nullptr},
        {R"(equals("a ",a))", nullptr},
        {"equals((0010,0010),Doe^Jane)", "true"},
        {R"(equals((0028,0010),""))", "true"}, // a binary element has an empty text
        {"if(NULL(),a,b)", "b"},
        {R"(if("",a,b))", "a"},
        {"if(x,NULL(),b)", nullptr},
        {"NULL()", nullptr},
    };
    expectRules(cases);
}

TEST(Translate, firstMatchOrDefault)
{
    constexpr RuleCase cases[] = {
        {"translate((0008,0060),OT,CT,CT,MR,MR)", "OT"},
        {"translate((0008,0060),OT,US,Echo)", "Echo"},
        {"translate(x,d)", "d"},
        {"translate(NULL(),d,NULL(),z)", "z"},
        {R"(translate(NULL(),d,"",z))", "d"},
        {R"(translate("",d,NULL(),z))", "d"},
        {"translate(a,NULL(),b,x)", nullptr},
        {"translate(a,d,a,NULL(),a,x)", nullptr}, // the first match decides, NULL too
        {"translate(ct,d,CT,x)", "d"},
        {R"(translate("CT ",d,CT,x))", "d"},
    };
    expectRules(cases);
}

TEST(Calls, evaluateOnlyWhatTheyNeedInOrder)
{
    const struct {
        const char* pattern;
        const char* expected;
        const char* trace;
    } cases[] = {
        {"or(?A,!B,!C)", "B", "AB"},
        {"and(!A,?B,!C)", nullptr, "AB"},
        {"and(!A,!B)", "true", "AB"},
        {"equals(?A,!B)", nullptr, "AB"},
        {"equals(?A,?B)", "true", "AB"},
        {"if(?A,!B,!C)", "C", "AC"},
        {"if(!A,!B,!C)", "B", "AB"},
        {"concat(?A,!B,?C)", "B", "ABC"},
        {"contains(?A,!B)", nullptr, "A"},
        {"indexof(?A,!B)", nullptr, "A"},
        {"substr(?A,!0,!1)", nullptr, "A"},
        {"substr(!A,!x,!1)", nullptr, "Ax"},  // a bad start ends it
        {"substr(!A,!5,!1)", nullptr, "A51"}, // one beyond the end is seen last
        {"substr(!A,?B,?C)", "A", "ABC"},
        {"split(?A,!B,!1)", nullptr, "A"},
        {"split(!A,!B,!1)", "A", "AB1"},
        {"toUpper(!a)", "A", "a"},
        {"add(!1,?A,!2)", nullptr, "1A"},
        {"add(!1,!2,!3)", "6", "123"},
        {"mul(!x,!2)", nullptr, "x"},
        {"sub(!x,!2)", nullptr, "x"},
        {"div(?A,!0)", nullptr, "A"},
        {"between(?A,!1,!2)", nullptr, "A"},
        {"between(!5,?A,!2)", nullptr, "5A"},
        {"between(!0,!1,!2)", nullptr, "012"}, // all are read before any is compared
        {"codestring(?A,!B)", nullptr, "A"},
        {"codestring(!A,?B)", "S", "AB"},
        {"rnd(?A,!B)", nullptr, "A"},
        {"rnd(!1,!B)", nullptr, "1"},
        {"dicomAge(?A,!B)", nullptr, "A"},
        {"dicomAge(!A,?B)", nullptr, "AB"},
        {"translate(!b,!d,!a,!X,!b,!Y,!c,!Z)", "Y", "bdaXbY"},
        {"$(!x)", nullptr, "x"},
        {"USER(?x)", nullptr, "x"},
        {"(?A)", nullptr, "A"},
        {"(?A,!1)", nullptr, "A1"},
        {"SEQ(?A,!1,!2,!3,!4)", nullptr, "A1234"},
        {"!A", "A", "A"},
        {"!A,!B,!1", "A", "AAB1"}, // the root evaluates the first of three, and so does its "split"
        {"?A,!B,!1", nullptr, "AA"},
    };
    for (const auto& c : cases) EXPECT_TRUE(tracesTo(c.pattern, c.expected, c.trace));
}

TEST(Calls, handOnTheOperandItself)
{
    const auto dataset = sampleDataset();
    MappingSession session;
    session.dataset = dataset.get();
    DcmElement* name = nullptr;
    ASSERT_TRUE(dataset->findAndGetElement(DcmTagKey(0x0010, 0x0010), name).good());
    for (const char* expression :
         {"(0010,0010)", "SEQ(0010,0010)", "((0010,0010))", "or(NULL(),(0010,0010))", "if(x,(0010,0010),y)",
          "if(NULL(),x,(0010,0010))", "contains(<Doe^Jane>,(0010,0010))", "translate(a,(0010,0010))",
          "translate(a,b,a,(0010,0010))"}) {
        const std::unique_ptr<Expression> tree(Expression::readCfgLine(expression));
        ASSERT_NE(tree, nullptr) << expression;
        const std::unique_ptr<Value> value(tree->getValue(session));
        ASSERT_NE(value, nullptr) << expression;
        EXPECT_EQ(static_cast<DcmElement*>(*value), name) << expression;
        EXPECT_EQ(value->refCount, 1) << expression;
    }
}

TEST(Root, threeArgumentsSplit)
{
    constexpr RuleCase cases[] = {
        {"(0010,0010),^,2", "Jane"}, {R"((0008,0008),"\\",3)", "AXIAL"}, {"a,,,2", nullptr}, {R"("a,b",",",2)", "b"},
        {"NULL(),^,1", nullptr},     {"(0010,0010)", "Doe^Jane"},
    };
    expectRules(cases);
    MappingSession session;
    std::list<Expression*> none;
    EXPECT_EQ(root_getValue(session, none), nullptr);
}

Value* textless_getValue(MappingSession&, std::list<Expression*>&)
{
    return new TagValue(nullptr);
}
constexpr FunctionDef kTextless = {"textless", nullptr, textless_getValue, c0_numParamsOK};

/// Puts a call of "textless" in the place of every literal "T".
void plantTextless(Expression& node)
{
    if (node.text != nullptr && std::strcmp(node.text, "T") == 0) {
        delete[] node.text;
        node.text = nullptr;
        node.func = &kTextless;
    }
    for (Expression* param : node.params) plantTextless(*param);
}

TEST(Calls, survivePresentValueWithoutText)
{
    const struct {
        const char* expression;
        bool isNull;
        const char* complaint = "";
    } cases[] = {
        {"not(T)", true},
        {"concat(T,x)", false},
        {"strlen(T)", true},
        {"contains(T,x)", true},
        {"indexof(T,x)", true},
        {"substr(T,0,1)", true},
        {"split(T,x,1)", true},
        {"split(a,T,1)", false},
        {"split(a,b,T)", true},
        {"substr(a,T)", true},
        {"add(T,1)", true, "Coercion: NULL() parameter at function add\n"},
        {"sub(1,T)", true, "Coercion: NULL() parameter at function sub\n"},
        {"between(1,T,2)", true, "Coercion: NULL() parameter at function sub (lower limit)\n"},
        {"codenumber(T)", true, "Coercion: Invalid codenumber original value: NULL()\n"},
        {"codestring(T)", true},
        {"codestring(a,T)", false},
        {"rnd(T)", true, "Coercion: Invalid rnd maxvalue: NULL()\n"},
        {"rnd(9,T)", true, "Coercion: Invalid rnd seed value: NULL()\n"},
        {"dicomAge(T,20200101)", true},
        {"equals(T,x)", true},
        {"equals(T,T)", false},
        {"equals(T,NULL())", true},
        {"translate(x,NULL(),T,y)", true},
        {"$(T)", true},
        {"USER(T)", true},
        {"(T,0010)", true},
        {"SEQ(0010,T)", true},
        {"SEQ(0040,0275,T,0040,0007)", true},
    };
    const auto dataset = sampleDataset();
    MappingSession session;
    session.dataset = dataset.get();
    for (const auto& c : cases) {
        const std::unique_ptr<Expression> tree(Expression::readCfgLine(c.expression));
        ASSERT_NE(tree, nullptr) << c.expression;
        plantTextless(*tree);
        StderrCapture captured;
        const std::unique_ptr<Value> value(tree->getValue(session));
        EXPECT_EQ(value == nullptr, c.isNull) << c.expression;
        EXPECT_EQ(captured.text(), c.complaint) << c.expression;
    }
}

TEST(Strings, changingCaseOfNoTextThrows)
{
    MappingSession session;
    for (const char* expression : {"toUpper(T)", "concat(a,(toLower(T)))"}) {
        const std::unique_ptr<Expression> tree(Expression::readCfgLine(expression));
        ASSERT_NE(tree, nullptr);
        plantTextless(*tree);
        try {
            delete tree->getValue(session);
            FAIL() << expression;
        } catch (const std::logic_error& thrown) {
            EXPECT_STREQ(thrown.what(), "basic_string::_M_construct null not valid") << expression;
        }
    }
}

} // namespace
