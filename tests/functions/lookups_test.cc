// SPDX-License-Identifier: BSD-3-Clause
// What rules read: elements by tag, elements in sequence items, temporary variables, custom fields.
#include "support/fixture.h"

namespace {
using namespace kxtest;

constexpr RuleCase kTags[] = {
    {"(0010,0010)", "Doe^Jane"},
    {"(0008,0090)", ""}, // present without a text
    {"(0010,0030)", nullptr},
    {"(0040,0007)", nullptr}, // in an item only
    {"(0009,1001)", "private text"},
    {"(10,10)", "Doe^Jane"}, // "%4X" reads up to four digits
    {R"(("  0010",0x10))", "Doe^Jane"},
    {"(zz,0010)", nullptr},
    {"(001@,0010)", nullptr},
    {"(0010,)", nullptr},
    {"(NULL(),0010)", nullptr},
    {"(0010,NULL())", nullptr},
    {"(concat(00,10),substr(x0010,1))", "Doe^Jane"},
    {"toUpper((concat(00,10),0010))", "DOE^JANE"},
    {"concat((0010),x)", "0010x"}, // in brackets, and no tag
    {"(NULL())", nullptr},
    {R"((""))", ""},
};
constexpr RuleCase kSeq[] = {
    {"SEQ(0010,0010)", "Doe^Jane"},
    {"SEQ(0010,zz)", nullptr},
    {"SEQ(NULL(),0010)", nullptr},
    {"SEQ(0040,0275,0,0040,0007)", "Step A"},
    {"SEQ(40,275,1,40,7)", "Step B"},
    {"SEQ(0040,0275,2,0040,0007)", nullptr},
    {"SEQ(0040,0275,-1,0040,0007)", "Step A"}, // below 0 is the first
    {"SEQ(0040,0275,x,0040,0007)", nullptr},
    {"SEQ(0040,0275,0,0040,zz)", nullptr},
    {"SEQ(0040,0275,NULL(),0040,0007)", nullptr},
    {"SEQ(0040,0275,0,0010,0010)", nullptr}, // not in the item
    {"SEQ(0008,1140,0,0008,1155)", nullptr}, // no items
    {"SEQ(0010,0010,0,0040,0007)", nullptr}, // no sequence
    {"SEQ(0040,0008,0,0008,0100)", nullptr}, // a level too low
    {"SEQ(0040,0275,0,0040,0008,0,0008,0100)", "CODE-A0"},
    {"SEQ(0040,0275,0,0040,0008,1,0008,0100)", "CODE-A1"},
    {"SEQ(0040,0275,0,0040,0008,0x1,0008,0100)", "CODE-A0"}, // every item number is decimal
    {"SEQ(0040,0275,0,0040,0008)", ""},                      // a sequence has no text
};
constexpr RuleCase kStores[] = {
    {"$(x)", "5"},       {"$(concat(x,y))", "6"}, {"$(@g)", "7"},        {"$(g)", nullptr},
    {"USER(empty)", ""}, {"USER(x)", nullptr},    {"USER(@g)", nullptr}, {"USER(NULL())", nullptr},
};

TEST(Lookups, readDatasetAndStores)
{
    const auto dataset = sampleDataset();
    ASSERT_TRUE(dataset->putAndInsertUint32(DcmTagKey(0x0010, 0x0000), 64).good()); // what "zz" must not be read as
    MappingSession session;
    session.dataset = dataset.get();
    session.variables = {{"x", "5"}, {"xy", "6"}, {"@g", "never read"}};
    session.atVariables = {{"g", "7"}};
    session.customFields.setFieldValue("field", "f");
    session.customFields.setFieldValue("empty", "");
    StderrCapture captured;
    for (const RuleCase& c : kTags) EXPECT_TRUE(evaluatesTo(c.expression, c.expected, session));
    for (const RuleCase& c : kSeq) EXPECT_TRUE(evaluatesTo(c.expression, c.expected, session));
    for (const RuleCase& c : kStores) EXPECT_TRUE(evaluatesTo(c.expression, c.expected, session));
    EXPECT_EQ(captured.text(), "");
}

TEST(Lookups, withoutDatasetFindNothing)
{
    MappingSession session;
    for (const char* expression : {"(0010,0010)", "SEQ(0010,0010)", "SEQ(0040,0275,0,0040,0007)"})
        EXPECT_TRUE(evaluatesTo(expression, nullptr, session));
}

TEST(Lookups, refuseOtherNumbersOfArguments) // the parser never makes such calls
{
    MappingSession session;
    Expression complaint; // would be seen on standard error
    complaint.func = &f_add;
    std::list<Expression*> none, two = {&complaint, &complaint};
    complaint.params = {new Expression};
    StderrCapture captured;
    for (std::list<Expression*>* params : {&none, &two}) {
        EXPECT_EQ(var_getValue(session, *params), nullptr);
        EXPECT_EQ(user_getValue(session, *params), nullptr);
    }
    EXPECT_EQ(captured.text(), "");
}

// A search begins where the last one ended: from every element, and from beside every element, each is found.
TEST(Lookups, everyElementIsFoundFromEverywhere)
{
    const auto dataset = sampleDataset();
    std::vector<DcmTagKey> keys = {{0x0000, 0x0002}, {0xFFFC, 0xFFFC}};
    for (unsigned long i = 0; i < dataset->card(); ++i) {
        const DcmTag& tag = dataset->getElement(i)->getTag();
        keys.push_back(tag);
        keys.emplace_back(tag.getGroup(), static_cast<Uint16>(tag.getElement() + 1));
    }
    MappingSession session;
    session.dataset = dataset.get();
    const auto isFound = [&session](const DcmTagKey& key) {
        return !evaluate(OFString("((" + key.toString().substr(1, 9) + "))").c_str(), session).isNull;
    };
    for (const DcmTagKey& from : keys) {
        for (const DcmTagKey& to : keys) {
            isFound(from);
            ASSERT_EQ(isFound(to), static_cast<bool>(dataset->tagExists(to))) << from << to;
        }
    }
    isFound(DCM_PatientName);
    dataset->clear();
    EXPECT_FALSE(isFound(DCM_PatientName));
}
} // namespace
