// SPDX-License-Identifier: BSD-3-Clause
// What the name of a mapping file means; what a set does with such files is in mappingset_test.cc.
#include "kxmap/core/filenames.h"

#include <gmock/gmock.h>

namespace {
using kxmap::Direction;
using kxmap::FileMeaning;
using kxmap::Place;

/// "role direction title inboundTitle"; "- why" for what is not read.
std::string shown(const FileMeaning& meaning)
{
    if (meaning.role == FileMeaning::Role::Unread) return std::string("- ") + meaning.whyUnread;
    std::string all = meaning.role == FileMeaning::Role::Pre    ? "pre"
                      : meaning.role == FileMeaning::Role::Post ? "post"
                                                                : "title";
    all += meaning.direction == Direction::Outbound ? " out" : " in";
    if (meaning.role != FileMeaning::Role::Title) return all;
    return all.append(" <").append(meaning.title).append("> <").append(meaning.inboundTitle).append(">");
}

struct NameCase {
    Place place;
    const char* name;
    const char* meaning;
};
constexpr const char* kSuffix = "- its name does not end in \".map\", in lower case";
constexpr const char* kGlobal = "- only pre.map, post.map, outpre.map and outpost.map are read here";
constexpr NameCase kNames[] = {
    {Place::Mappings, "CT1.map", "title in <CT1> <CT1>"},
    {Place::Mappings, "CT1.out.map", "title out <CT1> <CT1.out>"},
    {Place::Mappings, "CT1.OUT.map", "title in <CT1.OUT> <CT1.OUT>"},
    {Place::Mappings, "a.out.out.map", "title out <a.out> <a.out.out>"},
    {Place::Mappings, "out.map", "title in <out> <out>"},
    {Place::Mappings, "pre.map", "title in <pre> <pre>"},
    {Place::Mappings, ".map", "title in <> <>"},
    {Place::Mappings, ".out.map", "title out <> <.out>"},
    {Place::Mappings, "map", kSuffix},
    {Place::Mappings, "CT1.MAP", kSuffix},
    {Place::Mappings, "CT1.map~", kSuffix},
    {Place::Mappings, "..", kSuffix},
    {Place::Global, "pre.map", "pre in"},
    {Place::Global, "post.map", "post in"},
    {Place::Global, "outpre.map", "pre out"},
    {Place::Global, "outpost.map", "post out"},
    {Place::Global, "outoutpre.map", kGlobal},
    {Place::Global, "pre.out.map", kGlobal},
    {Place::Global, "Pre.map", kGlobal},
    {Place::Global, "out.map", kGlobal},
    {Place::Global, ".map", kGlobal},
    {Place::Global, "CT1.map", kGlobal},
    {Place::Global, "pre", kGlobal},
};

TEST(FileNames, meanings)
{
    for (const NameCase& c : kNames) EXPECT_EQ(shown(kxmap::meaningOf(c.place, c.name)), c.meaning) << c.name;
}

TEST(FileNames, whatIsMadeIsRead)
{
    for (const Direction direction : {Direction::Inbound, Direction::Outbound}) {
        const std::string side = direction == Direction::Inbound ? "in" : "out";
        for (const char* title : {"CT1", "", "pre", "a b", "x.map"}) {
            const std::string file = kxmap::titleFile(direction, title);
            EXPECT_THAT(shown(kxmap::meaningOf(Place::Mappings, file)),
                        testing::StartsWith("title " + side + " <" + title + ">"));
        }
        for (const std::string name : {"pre", "post"}) {
            const std::string file = kxmap::globalFile(direction, name);
            const std::string below = std::string(kxmap::kGlobalDirectory) + '/';
            ASSERT_THAT(file, testing::StartsWith(below));
            EXPECT_EQ(shown(kxmap::meaningOf(Place::Global, file.substr(below.size()))), name + ' ' + side);
        }
    }
}

TEST(FileNames, aPathIsNoTitle)
{
    for (const char* title : {"CT1", "", ".", "a\\b"}) EXPECT_TRUE(kxmap::canNameFile(title)) << title;
    for (const char* title : {"/", "../CT1", "a/"}) EXPECT_FALSE(kxmap::canNameFile(title)) << title;
}

} // namespace
