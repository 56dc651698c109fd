// SPDX-License-Identifier: BSD-3-Clause
// Values and the session: what a text is, how long it lives, and which write to a variable wins.
#include "support/fixture.h"

#include <gmock/gmock.h>

namespace {
using namespace kxtest;
using testing::ElementsAre;
using testing::Pair;

TEST(Newdup, copiesWithOneByteToSpare)
{
    EXPECT_EQ(newdup(nullptr), nullptr);
    for (const char* text : {"", "abc", "\xC3\xA9\n"}) {
        const std::unique_ptr<char[]> copy(newdup(text));
        EXPECT_STREQ(copy.get(), text);
        copy[std::strlen(text) + 1] = 'x'; // the spare byte is ours to write
    }
}

TEST(Values, stringValueHoldsItsOwnText)
{
    std::string source = "abc";
    StringValue value(source.c_str());
    source = "xyz";
    EXPECT_FALSE(value.made);
    EXPECT_EQ(value.refCount, 1);
    EXPECT_STREQ(value.getString(), "abc");
    EXPECT_TRUE(value.made);
    EXPECT_EQ(static_cast<DcmElement*>(value), nullptr);
    EXPECT_STREQ(StringValue(nullptr).getString(), "");
    EXPECT_EQ(TagValue(nullptr).getString(), nullptr);
}

TEST(Values, tagValueTakesTextOfElement)
{
    const struct {
        DcmTagKey key;
        const char* text;
    } cases[] = {
        {{0x0008, 0x0008}, "ORIGINAL\\PRIMARY\\AXIAL"},
        {{0x0010, 0x0020}, "  PID-42"},
        {{0x0009, 0x1001}, "private text"},
        {{0x0008, 0x0090}, ""}, // empty
        {{0x0028, 0x0010}, ""}, // US
        {{0x0028, 0x0009}, ""}, // AT
        {{0x0042, 0x0011}, ""}, // OB
        {{0x0009, 0x1002}, ""}, // UN
        {{0x0040, 0x0275}, ""}, // SQ
    };
    const auto dataset = sampleDataset();
    for (const auto& c : cases) {
        DcmElement* element = nullptr;
        ASSERT_TRUE(dataset->findAndGetElement(c.key, element).good()) << c.key;
        TagValue value(element);
        EXPECT_EQ(value.str, nullptr);
        EXPECT_EQ(value.refCount, 1);
        EXPECT_EQ(static_cast<DcmElement*>(value), element);
        EXPECT_STREQ(value.getString(), c.text) << c.key;
    }
}

TEST(Values, tagValueTextIsSnapshot)
{
    const auto dataset = sampleDataset();
    DcmElement* element = nullptr;
    ASSERT_TRUE(dataset->findAndGetElement(DcmTagKey(0x0010, 0x0010), element).good());
    TagValue value(element);
    EXPECT_FALSE(value.made);
    const char* first = value.getString();
    ASSERT_TRUE(element->putString("Roe^Richard").good());
    EXPECT_EQ(value.getString(), first);
    EXPECT_STREQ(first, "Doe^Jane");
    EXPECT_STREQ(TagValue(element).getString(), "Roe^Richard");
}

TEST(Session, firstWriteWinsUntilNull)
{
    MappingSession session;
    EXPECT_EQ(session.dataset, nullptr);
    for (const char* name : {"a", "@a", "", "@"}) {
        EXPECT_EQ(session.getVariable(name), nullptr) << name;
        session.setVariable(name, nullptr); // clearing what is not there
        session.setVariable(name, "1");
        session.setVariable(name, "2");
        EXPECT_STREQ(session.getVariable(name), "1") << name;
        session.setVariable(name, nullptr);
        EXPECT_EQ(session.getVariable(name), nullptr) << name;
        session.setVariable(name, "");
        EXPECT_STREQ(session.getVariable(name), "") << name;
        session.setVariable(name, "3"); // an empty text is a text
        EXPECT_STREQ(session.getVariable(name), "") << name;
    }
}

TEST(Session, atNamesAreWrittenTwiceAndReadOnce)
{
    MappingSession session;
    session.setVariable("@g", "v");
    EXPECT_THAT(session.variables, ElementsAre(Pair("@g", "v")));
    EXPECT_THAT(session.atVariables, ElementsAre(Pair("g", "v")));
    EXPECT_EQ(session.getVariable("g"), nullptr);

    session.variables.clear(); // a new mapping begins
    EXPECT_STREQ(session.getVariable("@g"), "v");
    session.setVariable("@g", "w"); // lands in the emptied map only
    EXPECT_STREQ(session.getVariable("@g"), "v");
    EXPECT_THAT(session.variables, ElementsAre(Pair("@g", "w")));
    session.setVariable("@g", nullptr);
    EXPECT_TRUE(session.variables.empty());
    EXPECT_TRUE(session.atVariables.empty());
    EXPECT_EQ(session.getVariable("G"), nullptr); // reading adds no key
    EXPECT_TRUE(session.variables.empty());
}

} // namespace
