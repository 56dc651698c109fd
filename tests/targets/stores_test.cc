// SPDX-License-Identifier: BSD-3-Clause
// Targets outside the dataset: custom fields and temporary variables.
#include "support/fixture.h"

namespace {
/// What a store holds under `name` after some rules; null when nothing.
struct StoreCase {
    const char* rules;
    const char* name;
    const char* expected;
};

constexpr StoreCase kVariables[] = {
    {"$(a)=1\n$(a)=2", "a", "1"}, // the first write wins
    {"$(a)=1\n$(a)=NULL()\n$(a)=2", "a", "2"},
    {"$(a)=1\n$(a)=(0010,4000)", "a", nullptr}, // an absent element is NULL
    {"$(a)=NULL", "a", "NULL"},                 // without brackets a mere text
    {"$(a)=NULL()", "a", nullptr},
    {"$(a)=(0010,0010)", "a", "Doe^Jane"},
    {"$(a)=(0028,0010)", "a", ""}, // present, without a text
    {"$(a) =1", "a", nullptr},
    {"$(@a)=1\n$(@a)=2", "@a", "1"},
    {"$(@a)=1\n$(@a)=NULL()", "@a", nullptr},
    {"$(@a)=1", "a", nullptr},
    {"$(a)=1", "@a", nullptr},
    {"$(a)=(0010,0010)\n(0010,0010)=x", "a", "Doe^Jane"}, // a copy, not the element
};
constexpr StoreCase kFields[] = {
    {"USER(f)=1\nUSER(f)=2", "f", "2"}, // the last write wins
    {"USER(f)=1\nUSER(f)=NULL()", "f", nullptr},
    {"USER(f)=\"\"", "f", ""},
    {"USER(@f)=(0010,0020)", "@f", "  PID-42"},
    {"USER(f)=1\nUSER(F)=2", "f", "1"},
    {"USER(f) =1", "f", nullptr},
};

void check(const StoreCase& c, bool isField)
{
    const auto dataset = kxtest::sampleDataset();
    MappingSession session;
    session.dataset = dataset.get();
    Mapping(c.rules, "stores").apply(session);
    const char* got = isField ? session.customFields.getFieldValue(c.name) : session.getVariable(c.name);
    EXPECT_STREQ(got, c.expected) << c.rules;
}

TEST(Targets, variables)
{
    for (const StoreCase& c : kVariables) check(c, false);
}
TEST(Targets, customFields)
{
    for (const StoreCase& c : kFields) check(c, true);
}

TEST(Targets, valueWithoutTextClears)
{
    MappingSession session;
    session.setVariable("a", "1");
    session.customFields.setFieldValue("f", "1");
    TagValue nothing(nullptr);
    LVTempVar("a").assignValue(session, &nothing);
    LVCustomField("f").assignValue(session, &nothing);
    EXPECT_EQ(session.getVariable("a"), nullptr);
    EXPECT_EQ(session.customFields.getFieldValue("f"), nullptr);
    EXPECT_EQ(nothing.refCount, 1);
}
} // namespace
