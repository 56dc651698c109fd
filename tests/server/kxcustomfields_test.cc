// SPDX-License-Identifier: BSD-3-Clause
// The custom-field store: what a write keeps, what a null does, and how long a text lives.
#include "KXCustomFields.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KXCustomFields, lastWriteWinsAndNullClears)
{
    KXCustomFields store;
    EXPECT_EQ(store.getFieldValue("f"), nullptr);
    store.setFieldValue("f", "1");
    store.setFieldValue("f", "2");
    EXPECT_STREQ(store.getFieldValue("f"), "2");
    EXPECT_EQ(store.getFieldValue("F"), nullptr);
    store.setFieldValue("f", "");
    EXPECT_STREQ(store.getFieldValue("f"), "") << "an empty text is a text";
    store.setFieldValue("f", nullptr);
    store.setFieldValue("f", nullptr);
    EXPECT_EQ(store.getFieldValue("f"), nullptr);
    EXPECT_TRUE(store.fields().empty());
}

TEST(KXCustomFields, namelessFieldIsNone)
{
    KXCustomFields store;
    store.setFieldValue(nullptr, "x");
    store.setFieldValue(nullptr, nullptr);
    EXPECT_EQ(store.getFieldValue(nullptr), nullptr);
    EXPECT_TRUE(store.fields().empty());
    store.setFieldValue("", "the empty name is a name");
    EXPECT_STREQ(store.getFieldValue(""), "the empty name is a name");
}

TEST(KXCustomFields, textStaysWhileOtherFieldsChange)
{
    KXCustomFields store;
    store.setFieldValue("kept", "text");
    const char* const text = store.getFieldValue("kept");
    for (int i = 0; i < 100; ++i) store.setFieldValue(std::to_string(i).c_str(), text);
    store.setFieldValue("7", nullptr);
    EXPECT_EQ(store.getFieldValue("kept"), text);
    EXPECT_STREQ(store.getFieldValue("99"), "text");
}

TEST(KXCustomFields, textOfTheStoreItselfCanBeWritten)
{
    KXCustomFields store;
    store.setFieldValue("f", "a text too long to be kept within the string object");
    store.setFieldValue("f", store.getFieldValue("f") + 2);
    EXPECT_STREQ(store.getFieldValue("f"), "text too long to be kept within the string object");
}

TEST(KXCustomFields, copiesAreApartAndFieldsAreInByteOrder)
{
    KXCustomFields store;
    for (const char* name : {"b", "\xe4", "a", "B"}) store.setFieldValue(name, name);
    KXCustomFields copy = store;
    copy.setFieldValue("a", "changed");
    EXPECT_STREQ(store.getFieldValue("a"), "a");

    std::string names;
    for (const auto& [name, text] : store.fields()) names += name + text;
    EXPECT_EQ(names, "BBaabb\xe4\xe4");
}

} // namespace
