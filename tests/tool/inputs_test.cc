// SPDX-License-Identifier: BSD-3-Clause
// From names to inputs, and from inputs to the places of their results.
#ifdef KXDCM_TOOL

#include "support/fixture.h"
#include "tool/console/output.h"
#include "tool/dicom/inputs.h"

#include <gmock/gmock.h>

#include <string>

using namespace kxtest;
using namespace kxtool;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::ElementsAreArray;
namespace fs = std::filesystem;

namespace {

class ToolInputs : public testing::Test {
protected:
    void SetUp() override
    {
        for (const char* file : {"a", "b", "in/c", "in/deep/d"}) dir.write(file, "");
        fs::create_symlink("a", dir.path() / "link");
        fs::create_directory_symlink("in", dir.path() / "alias");
        fs::create_hard_link(dir.path() / "a", dir.path() / "hard");
    }

    std::string at(const std::string& relative) const { return (dir.path() / relative).native(); }

    // @return for each input its place below the folder, "-" for none, "!" where it is refused; or "refused" for all.
    std::vector<std::string> places(const std::string& output, bool needsFolder, const std::vector<std::string>& names)
    {
        std::vector<std::string> full;
        for (const std::string& name : names) full.push_back(at(name));
        const std::vector<Input> inputs =
            collectInputs(full, {}, [](const fs::path& name, const FileError&) { ADD_FAILURE() << name; });
        std::vector<std::string> all;
        try {
            const OutputPlan plan(output.empty() ? fs::path() : fs::path(at(output)), needsFolder, inputs);
            for (std::size_t index = 0; index < inputs.size(); ++index) {
                try {
                    const auto place = plan.placeOf(index);
                    all.push_back(place ? place->lexically_relative(dir.path()).native() : "-");
                } catch (const FileError&) {
                    all.emplace_back("!");
                }
            }
        } catch (const FileError&) {
            return {"refused"};
        }
        return all;
    }

    const TempDir dir;
};

} // namespace

TEST_F(ToolInputs, everyResultHasAPlaceOfItsOwn)
{
    struct Case {
        const char* output;
        bool needsFolder;
        std::vector<std::string> names;
        std::vector<std::string> places;
    };
    const Case cases[] = {
        {"", true, {"a", "b"}, {"a", "b"}},
        {"", true, {"a", "link", "in/../a"}, {"a", "-", "-"}},
        {"", true, {"a", "hard"}, {"a", "hard"}},
        {"", true, {"in", "alias"}, {"in/c", "in/deep/d", "-", "-"}},
        {"new", false, {"a"}, {"new"}},
        {"new/", false, {"a"}, {"new/a"}},
        {"new", true, {"a"}, {"new/a"}},
        {"in", false, {"a"}, {"in/a"}}, // a folder that is there
        {"new", true, {"in", "b"}, {"new/c", "new/deep/d", "new/b"}},
        {"new", true, {"a", "in/../a"}, {"new/a", "-"}},
        {"new", true, {"a", "hard"}, {"new/a", "new/hard"}},
        {"new", true, {"in/c", "in"}, {"new/c", "-", "new/deep/d"}},
        {"b", true, {"a", "in"}, {"refused"}},        // a file is there
        {"b", false, {"a"}, {"b"}},                   // which one result may replace
        {"b", false, {"a", "b"}, {"!", "b"}},         // unless it is read
        {"link", false, {"a"}, {"link"}},             // in place, through the link
        {"in", true, {"in", "in/deep"}, {"refused"}}, // d would be read for two places, and one of them is its own
    };
    for (const Case& c : cases)
        EXPECT_THAT(places(c.output, c.needsFolder, c.names), ElementsAreArray(c.places))
            << c.output << " " << testing::PrintToString(c.names);
}

TEST_F(ToolInputs, twoResultsOfOneNameAreRefused)
{
    dir.write("other/c", "");
    EXPECT_THAT(places("new", true, {"in/c", "other/c"}), ElementsAre("new/c", "!"));
}

TEST_F(ToolInputs, placesAreTakenUnderAllTheirNames)
{
    const std::vector<Input> inputs = {{at("a"), "a", false}};
    OutputPlan plan(at("in"), true, inputs);
    for (const char* taken : {"a", "link", "in/a", "alias/a", "in/deep/../a"})
        EXPECT_TRUE(plan.isTaken(at(taken))) << taken;
    for (const char* free : {"b", "hard", "in/b", "new"}) EXPECT_FALSE(plan.isTaken(at(free))) << free;
}

TEST_F(ToolInputs, foldersAreMadeFromTheTop)
{
    const std::vector<Input> inputs = {{at("in/deep/d"), "deep/er/d", false}, {at("a"), "a", false}};
    OutputPlan plan(at("new"), true, inputs);
    EXPECT_THAT(plan.makeFolders(*plan.placeOf(0)), ElementsAre(at("new"), at("new/deep"), at("new/deep/er")));
    EXPECT_THAT(plan.makeFolders(*plan.placeOf(1)), ElementsAre());
    EXPECT_TRUE(fs::is_directory(at("new/deep/er")));
    OutputPlan blocked(at("b/x"), true, inputs);
    EXPECT_THROW(blocked.makeFolders(*blocked.placeOf(1)), FileError);
}

TEST_F(ToolInputs, listsGiveNamesAndKeepTheirPaths)
{
    struct Case {
        std::string content;
        std::vector<std::string> names;
    };
    const Case cases[] = {
        {"", {}},
        {"a\nb\n", {"a", "b"}},
        {"a\n\n b", {"a", " b"}},
        {"a\r\nb\r\n", {"a", "b"}},
        {"a\r\nb\n", {"a\r", "b"}},
        {"a\r\n\nb\r\n", {"a\r", "b\r"}},
        {"a\r", {"a\r"}},
        {"\nb\r\n", {"b\r"}},
        {"a\nb\0c\0"s, {"a\nb", "c"}},
        {"\0\0a"s, {"a"}},
    };
    for (const Case& c : cases)
        EXPECT_THAT(readNames(dir.write("list", c.content)), ElementsAreArray(c.names)) << c.content;
    EXPECT_THROW(readNames(at("nope")), FileError);

    std::vector<std::string> refused;
    const std::vector<Input> inputs =
        collectListed({at("in/./deep/../c"), at("in/deep"), at("nope")}, {},
                      [&](const fs::path& name, const FileError&) { refused.push_back(name.native()); });
    const fs::path below = dir.path().relative_path();
    ASSERT_EQ(inputs.size(), 2U);
    EXPECT_EQ(inputs[0].relative, below / "in/c");
    EXPECT_EQ(inputs[1].relative, below / "in/deep/d");
    EXPECT_THAT(refused, ElementsAre(at("nope")));
}

#endif
